// orv-gentl: a GenTL consumer for people. Speaks only GenTL to whatever producer it loads.
#include "commands/completion.h"
#include "commands/convert_command.h"
#include "commands/doctor.h"
#include "commands/doctor_watch.h"
#include "commands/document_command.h"
#include "commands/feature_commands.h"
#include "commands/grab_command.h"
#include "commands/installation_commands.h"
#include "commands/list_commands.h"
#include "commands/network_commands.h"
#include "commands/plan_command.h"
#include "commands/settings_commands.h"
#include "commands/support_bundle.h"
#include "commands/watch_command.h"
#include "consumer/nearest_names.h"
#include "output/output.h"
#include "posix/standard_streams.h"

#include <gds_shared/product_constants.h>
#include <options/numbers.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace cli;

void add_file_commands(command_line& line) {
    auto converting = std::make_shared<convert_options>();
    auto* convert_command = line.app.add_subcommand("convert", "Converts a raw picture to another pixel format");
    const auto pixels = option_checks::whole_number(1, std::numeric_limits<int32_t>::max());
    convert_command->add_option("file", converting->file, "Raw file, lines without padding")->required();
    convert_command->add_option("--from", converting->from, "Format of the file: PFNC name or four characters")
        ->required();
    convert_command->add_option("--width", converting->width, "Pixels")->required()->check(pixels);
    convert_command->add_option("--height", converting->height, "Lines")->required()->check(pixels);
    convert_command->add_option("--to", converting->to, "Format wanted")->required();
    convert_command->add_option("-o,--output", converting->output, "File to write (default: named after the format)");
    convert_command->add_flag("--json", line.options.json, "One JSON object on the standard output");
    convert_command->footer("Example: orv-gentl convert frame.raw --from Mono12p --width 640 --height 480 --to Mono16");
    convert_command->callback([&line, converting] {
        converting->json = line.options.json;
        line.exit_code = convert_file(*converting);
    });

    auto document = std::make_shared<document_options>();
    auto* xml_command = line.app.add_subcommand("xml", "Shows a GenICam document without a device");
    xml_command->add_option("file", document->file, "Document, zipped or not")->required();
    xml_command->add_option("--memory", document->memory,
                            "File with the bytes of the port 'Device' from address 0 (default: zeros everywhere)");
    xml_command->add_flag("--json", line.options.json, "One JSON object on the standard output");
    xml_command->add_flag("--time", document->time, "Load time and nodes per second");
    xml_command->footer("Example: orv-gentl xml camera.zip");
    xml_command->callback([&line, document] {
        document->json = line.options.json;
        line.exit_code = show_document(*document);
    });
}

// The parser says of a mistyped command, and of an option before it, that a command is missing.
std::string complaint_of(const CLI::App& app, const CLI::ParseError& error, const std::vector<std::string>& words) {
    const CLI::App* within = &app;
    std::string path;
    for (const std::string& word : words) {
        const auto commands = within->get_subcommands([](const CLI::App*) { return true; });
        if (commands.empty()) break; // the fault is in what the command was given
        if (word == "--json") continue;
        if (word.starts_with('-'))
            return fmt::format("'{}' stands before the command: options stand behind it, but for --json.", word);
        const auto command = std::ranges::find(commands, word, [](const CLI::App* each) { return each->get_name(); });
        if (command == commands.end()) {
            std::vector<std::string> known;
            for (const CLI::App* each : commands) known.push_back(each->get_name());
            return fmt::format("There is no command '{}{}'.{}", path, word, did_you_mean(word, known));
        }
        within = *command;
        path += word + ' ';
    }
    return error.what();
}

// Help and version are what was asked for; all else is a fault in the arguments, told like every other failure.
int parse_error(const CLI::App& app, const CLI::ParseError& error, const std::vector<std::string>& words, bool json) {
    std::ostringstream answer, ignored;
    if (app.exit(error, answer, ignored) == 0) {
        print_text(answer.str());
        flush_output();
        return 0;
    }
    return report_failure(
        failure(cause::arguments,
                fmt::format("{}\n'orv-gentl --help' and 'orv-gentl COMMAND --help' tell what there is.",
                            complaint_of(app, error, words))),
        json);
}

int run(int argc, char** argv) {
    CLI::App app{
        "A GenTL consumer: finds cameras, gives them addresses, shows and sets their features, grabs pictures."};
    common_options options;
    command_line line{app, options};
    app.require_subcommand(1);
    app.set_version_flag("--version", fmt::format("orv-gentl {}", gds_shared::gev_product.version_text));
    app.add_flag("--json", options.json, "One JSON object on the standard output; also behind the command");
    app.footer(
        "Exit codes: 0 done; 1 the answer is no; 2 failed; 3 arguments; 4 no library; 5 no service; 6 no camera;\n"
        "7 several cameras fit; 8 camera in use; 9 camera or service lost; 10 time-out; 11 incomplete frames;\n"
        "12 wrong frames; 13 feature; 14 output cannot be written; 130 interrupted.");
    add_list_commands(line);
    add_feature_commands(line);
    add_settings_commands(line);
    add_grab_command(line);
    add_watch_command(line);
    add_plan_command(line);
    add_file_commands(line);
    add_network_commands(app, options, line.exit_code,
                         [&](CLI::App& command, reach of) { line.add_common(command, of); });
    add_installation_commands(line);
    auto watching = std::make_shared<watch_options>();
    auto watched = std::make_shared<bool>(false);
    auto& doctor_command =
        line.add("doctor", "What is wrong, and what mends it", reach::search, [&options, watching, watched] {
            return *watched ? watch_streams(options, *watching) : doctor(options);
        });
    auto* const watch_flag = doctor_command.add_flag(
        "--watch", *watched, "Look where packets are lost beside an application that runs, until Ctrl-C");
    doctor_command.add_option("--interval", watching->interval_s, "Seconds between two lines of --watch")
        ->needs(watch_flag)
        ->check(option_checks::number(0.05, 3600));
    doctor_command.add_option("--count", watching->count, "End --watch after so many lines; 0: at Ctrl-C")
        ->needs(watch_flag)
        ->check(option_checks::whole_number(0));
    doctor_command.footer(
        "Each finding is ok, advice or BAD; the exit code is 1 when one is BAD, or when --watch saw packets lost.\n"
        "Examples: orv-gentl doctor --json\n          orv-gentl doctor --watch --interval 5");
    add_support_bundle_command(line);
    add_completion_command(line);

    // Known before the parse, whose own faults are told in the form asked for.
    const std::vector<std::string> words{argv + 1, argv + argc};
    const bool json = std::ranges::find(words, "--json") != words.end();
    try {
        app.parse(argc, argv);
        try {
            flush_output();
        } catch (const failure& second) {
            // A failure that was told stays the one to tell.
            if (line.exit_code <= row_of(cause::no).exit_code) throw;
            if (line.exit_code != row_of(cause::output).exit_code) say("{}\n", second.what());
        }
        return line.exit_code;
    } catch (const CLI::ParseError& error) {
        return parse_error(app, error, words, json);
    } catch (const std::exception& reason) {
        return report_failure(reason, json);
    }
}

} // namespace

int main(int argc, char** argv) {
    secure_standard_streams();
    try {
        return run(argc, argv);
    } catch (const std::exception& reason) { // of help that cannot be written
        return report_failure(reason, false);
    }
}
