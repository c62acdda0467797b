#include "settings_commands.h"

#include "../consumer/settings_file.h"
#include "../output/output.h"
#include "../posix/atomic_file.h"
#include "../posix/this_process.h"

#include <ctime>
#include <memory>

namespace cli {

namespace {

int save(const common_options& options, const std::string& path) {
    const open_module opened = open_named_module(options, access_flags_of(options.access));
    std::vector<std::string> left_out;
    const auto settings = collect_settings(*opened.nodes, left_out);
    const auto about = opened.nodes->document().get_document_info();
    const std::string text = settings_text(
        settings, {fmt::format("Settings of {} {}, saved {}", about.vendor_name, about.model_name,
                               local_time(std::time(nullptr))),
                   "NAME=VALUE or NAME[SELECTOR=CHOICE]=VALUE; 'orv-gentl load' gives them back in this order"});
    if (path.empty()) {
        print_text(text);
        flush_output();
    } else {
        write_file(path, text);
    }
    for (const std::string& each : left_out) say("Left out: {}\n", each);
    if (options.json) {
        print_json({{"file", path}, {"settings", settings.size()}, {"left_out", left_out}});
    } else if (!path.empty()) {
        print("{} settings written to {}\n", settings.size(), path);
    }
    return 0;
}

int load(const common_options& options, const std::string& path) {
    const auto saved = read_settings(path);
    const open_module opened = open_named_module(options, access_flags_of(options.access));
    const auto differing = load_settings(*opened.nodes, saved);
    nlohmann::json list = nlohmann::json::array();
    for (const difference& each : differing)
        list.push_back({{"name", each.what}, {"asked", each.saved}, {"found", each.now}});
    const nlohmann::json object{
        {"file", path}, {"settings", saved.size()}, {"taken", saved.size() - differing.size()}, {"not_taken", list}};
    if (!options.json) {
        print("{} of {} settings taken\n", saved.size() - differing.size(), saved.size());
        for (const difference& each : differing) print("  {}={}   ! {}\n", each.what, each.saved, each.now);
        flush_output();
    }
    if (!differing.empty())
        return report_failure(
            failure(cause::feature, fmt::format("{} of {} settings did not take.", differing.size(), saved.size())),
            options.json, object);
    if (options.json) print_json(object);
    return 0;
}

} // namespace

void add_settings_commands(command_line& line) {
    auto file = std::make_shared<std::string>();
    common_options& options = line.options;

    auto& save_command =
        line.add("save", "Writes a camera's settings to a file", reach::opened_device, [&options, file] {
            if (options.json && file->empty())
                throw failure(cause::arguments, "With --json the settings need a file of their own.");
            return save(options, *file);
        });
    line.add_module(save_command);
    save_command.add_option("file", *file, "File to write (default: the standard output)");
    save_command.footer("What the camera's maker marks as settings, for every choice of its selectors.\n"
                        "Example: orv-gentl save left.txt --device left");

    auto& load_command = line.add("load", "Gives a camera the settings of a file", reach::opened_device,
                                  [&options, file] { return load(options, *file); });
    line.add_module(load_command);
    load_command.add_option("file", *file, "File of 'orv-gentl save'")->required();
    load_command.footer("In the file's order; what does not take is tried once more and then told.\n"
                        "Example: orv-gentl load left.txt --device left");
}

} // namespace cli
