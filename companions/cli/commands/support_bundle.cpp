#include "support_bundle.h"

#include "../cameras/camera_dump.h"
#include "../consumer/device_choice.h"
#include "../host/installation_checks.h"
#include "../output/archive_file.h"
#include "../output/output.h"
#include "../posix/child_program.h"
#include "../posix/this_process.h"

#include <gds_shared/product_constants.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>

namespace cli {

namespace {

namespace fs = std::filesystem;

constexpr std::chrono::seconds longest_program{30};
constexpr size_t most_of_a_log = 4 << 20; // its end

// What tells who works here, and what stands in its place.
struct private_word {
    std::string word, instead;
};

std::vector<private_word> private_words() {
    std::vector<private_word> words;
    const auto add = [&](const std::string& word, const char* instead) {
        // Of a word so short, or so common, the text would suffer more than it hides.
        if (word.size() >= 3 && word != "root" && word != "/root" && word != "localhost")
            words.push_back({word, instead});
    };
    if (const char* home = std::getenv("HOME")) add(home, "~");
    add(user_home(), "~");
    add(user_name(), "USER");
    add(host_name(), "HOST");
    return words;
}

// Whole words only: "ann" is no part of "channel".
std::string masked(std::string text, const std::vector<private_word>& words) {
    const auto is_word = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_'; };
    for (const auto& [word, instead] : words) {
        for (size_t at = 0; (at = text.find(word, at)) != text.npos;) {
            const size_t end = at + word.size();
            const bool inside =
                (at > 0 && is_word(text[at - 1]) && is_word(word.front())) || (end < text.size() && is_word(text[end]));
            if (!inside) text.replace(at, word.size(), instead);
            at += inside ? 1 : instead.size();
        }
    }
    return text;
}

// A file of the kernel or of the disk, its end when it is long. Nothing when it cannot be read, or may have no end.
std::optional<std::string> read_end(const fs::path& path) {
    std::error_code closed;
    if (!fs::is_regular_file(path, closed)) return std::nullopt;
    std::ifstream file{path, std::ios::binary};
    if (!file) return std::nullopt;
    std::error_code ignored;
    const auto size = fs::file_size(path, ignored); // 0 for those of the kernel
    if (!ignored && size > most_of_a_log) file.seekg(static_cast<std::streamoff>(size - most_of_a_log));
    std::ostringstream text; // an iterator would throw where reading fails
    text << file.rdbuf();
    if (text.fail() && !ignored && size != 0) return std::nullopt; // as it does for a file without a byte
    return std::move(text).str();
}

class collector {
public:
    explicit collector(const common_options& given) : common(given) {}

    void collect() {
        add_versions();
        add_environment();
        add_doctor();
        add_host();
        add_logs();
        add_cameras();
        std::ranges::sort(files, {}, &named_content::name);
        add_manifest();
    }

    [[nodiscard]] nlohmann::json contents() const {
        nlohmann::json object{
            {"files", nlohmann::json::array()}, {"missing", nlohmann::json::array()}, {"masked", masks}};
        for (const named_content& file : files)
            object["files"].push_back({{"name", file.name}, {"bytes", file.content.size()}});
        for (const auto& [name, reason] : missing) object["missing"].push_back({{"name", name}, {"reason", reason}});
        return object;
    }

    std::vector<named_content> files;

private:
    void add(const std::string& name, const std::string& text) { files.push_back({name, masked(text, words)}); }
    void miss(const std::string& name, const std::string& reason) { missing.emplace_back(name, masked(reason, words)); }
    void add_file(const std::string& name, const fs::path& path) {
        if (const auto text = read_end(path))
            add(name, *text);
        else
            miss(name, fmt::format("cannot read '{}'", path.string()));
    }
    void add_program(const std::string& name, const std::vector<std::string>& command) {
        const program_answer answer = run_program(command, longest_program);
        if (!answer.problem.empty()) miss(name, answer.problem);
        if (answer.problem.empty() || !answer.output.empty()) add(name, answer.output);
    }

    void add_versions() {
        std::string text = fmt::format("orv-gentl {}\n", gds_shared::gev_product.version_text);
        for (const char* path : {"/proc/version", "/etc/os-release", "/proc/loadavg"})
            text += fmt::format("\n{}:\n{}", path, read_end(path).value_or("cannot be read\n"));
        add("versions.txt", text);
        try {
            const fs::path cti = find_cti(common);
            std::error_code ignored;
            for (const auto& entry : fs::directory_iterator{cti.parent_path(), ignored}) {
                const std::string name = entry.path().filename();
                if (name.starts_with("orv-gentl-gev_setup") && name.ends_with(".json"))
                    add_file("settings/" + name, entry.path());
            }
        } catch (const failure& reason) {
            miss("settings", reason.what());
        }
    }

    void add_environment() {
        std::string text;
        for (const std::string& line : environment()) {
            for (const char* start : {"ORV_GENTL_", "GENICAM_", "XDG_RUNTIME_DIR=", "XDG_CONFIG_HOME=",
                                      "LD_LIBRARY_PATH=", "LD_PRELOAD=", "LANG=", "LC_"})
                if (line.starts_with(start)) text += line + '\n';
        }
        add("environment.txt", text);
    }

    // In a process of its own: what hangs or ends there leaves the rest.
    void add_doctor() {
        std::vector<std::string> command{program_file().string(), "doctor", "--json"};
        if (!common.cti.empty()) command.insert(command.end(), {"--cti", common.cti});
        add_program("doctor.json", command);
    }

    void add_host() {
        std::string sysctls;
        for (const char* name : {"core/rmem_max", "core/rmem_default", "core/netdev_max_backlog", "core/netdev_budget",
                                 "core/netdev_budget_usecs", "ipv4/udp_mem", "ipv4/udp_rmem_min",
                                 "ipv4/conf/all/rp_filter", "ipv4/conf/default/rp_filter"})
            sysctls +=
                fmt::format("{} = {}", name, read_end(fs::path{"/proc/sys/net"} / name).value_or("cannot be read\n"));
        std::error_code ignored;
        std::vector<std::string> interfaces;
        for (const auto& entry : fs::directory_iterator{"/sys/class/net", ignored})
            interfaces.push_back(entry.path().filename());
        std::ranges::sort(interfaces);
        for (const std::string& name : interfaces) {
            const std::string filter = "ipv4/conf/" + name + "/rp_filter";
            sysctls += fmt::format("{} = {}", filter,
                                   read_end(fs::path{"/proc/sys/net"} / filter).value_or("cannot be read\n"));
            if (name == "lo") continue;
            std::string settings;
            for (const char* which : {"-i", "-g", "-k", "-a", "-S"}) {
                const program_answer answer = run_program({"ethtool", which, name}, longest_program);
                if (!answer.problem.empty()) miss(fmt::format("network/{} ethtool {}", name, which), answer.problem);
                settings += fmt::format("ethtool {} {}\n{}\n", which, name, answer.output);
            }
            add("network/" + name + ".txt", settings);
        }
        add("network/sysctl.txt", sysctls);
        add_program("network/addresses.txt", {"ip", "-s", "-d", "address"});
        add_program("network/routes.txt", {"ip", "route", "show", "table", "all"});
        add_program("network/neighbours.txt", {"ip", "neighbour"});
        for (const char* name : {"udp", "snmp", "softnet_stat", "dev"})
            add_file(fmt::format("network/proc-{}.txt", name), fmt::format("/proc/net/{}", name));
    }

    void add_logs() {
        fs::path own;
        try {
            own = find_cti(common);
        } catch (const failure&) {
            // It stands among the versions that there is none.
        }
        const auto logs = logs_of_settings(own);
        if (logs.empty()) miss("logs", "neither settings nor ORV_GENTL_GEV_DEBUG_FILE name a log");
        const bool is_one = logs.size() == 2 && logs[0].file == logs[1].file;
        for (const named_log& log : logs) {
            if (is_one && &log != logs.data()) break;
            const bool of_service = std::string_view{log.key} == "service_log_file";
            add_file(is_one ? "logs/debug.log" : of_service ? "logs/service.log" : "logs/library.log", log.file);
        }
        const program_answer journal = run_program(
            {"journalctl", "--no-pager", "--lines=5000", "--identifier=orv-gentl-gev-service"}, longest_program);
        if (!journal.problem.empty())
            miss("logs/journal.txt", journal.problem);
        else if (journal.output.contains("-- No entries --"))
            return miss("logs/journal.txt", "no entries of the service, or none that this user may read");
        if (!journal.output.empty()) add("logs/journal.txt", journal.output);
    }

    void add_cameras() {
        try {
            found_devices found = find_devices(common);
            add_places(found);
            nlohmann::json list{{"interfaces", nlohmann::json::array()}, {"devices", nlohmann::json::array()}};
            for (const auto& entry : found.interfaces)
                list["interfaces"].push_back({{"id", entry.id}, {"display_name", entry.display_name}});
            for (const auto& [device, interface] : found.devices) list["devices"].push_back(to_json(device));
            add("cameras.json", json_text(list) + '\n');
            for (const auto& [device, interface] : found.devices) add_camera(found, device, interface);
        } catch (const failure& reason) {
            miss("cameras", reason.what());
        }
    }

    void add_camera(const found_devices& found, const device_entry& device,
                    const std::shared_ptr<const tl_interface>& interface) {
        std::string folder = fmt::format("cameras/{}/{}", device.interface_id, device.id);
        std::ranges::replace_if(
            folder,
            [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0 && c != '/' && c != '-' && c != '_'; },
            '_');
        try {
            const auto opened = open_chosen(found, device, interface, GenTL::DEVICE_ACCESS_READONLY);
            std::vector<std::pair<std::string, std::string>> gaps;
            dump_camera(*found.lib, *opened, folder, files, gaps);
            for (const auto& [name, reason] : gaps) miss(name, reason);
        } catch (const failure& reason) {
            miss(folder, reason.what());
        }
    }

    void add_manifest() {
        const std::string text = json_text(contents()) + '\n';
        files.insert(files.begin(), {"manifest.json", text});
    }

    const common_options& common;
    const std::vector<private_word> words = private_words();
    const std::vector<std::string> masks{"the user's name", "the home folder", "the host's name"};
    std::vector<std::pair<std::string, std::string>> missing;
};

int support_bundle(const common_options& common, const std::string& path) {
    collector all{common};
    all.collect();
    nlohmann::json result = all.contents();
    result["path"] = path;
    result["written"] = false;
    say("'{}' will hold:\n", path);
    for (const auto& file : result["files"])
        say("  {} ({} bytes)\n", file["name"].get<std::string>(), file["bytes"].get<size_t>());
    if (!result["missing"].empty()) say("It lacks:\n");
    for (const auto& gap : result["missing"])
        say("  {}: {}\n", gap["name"].get<std::string>(), gap["reason"].get<std::string>());
    say("Addresses, MAC addresses, serial numbers and the cameras' settings are in it; the user's name, the home "
        "folder\n"
        "and the host's name are replaced by USER, ~ and HOST.\n");
    try {
        write_collection(path, all.files);
    } catch (const failure& reason) {
        return report_failure(reason, common.json, result);
    }
    result["written"] = true;
    if (common.json)
        print_json(result);
    else
        print("{}\n", path);
    return 0;
}

} // namespace

void add_support_bundle_command(command_line& line) {
    auto path = std::make_shared<std::string>();
    auto& command = line.add("support-bundle", "Collects what somebody needs to help from afar", reach::search,
                             [&line, path] { return support_bundle(line.options, *path); });
    command.add_option("file", *path, "FILE.tar.gz, or a folder that is not there yet")->required();
    command.footer(
        "Versions, doctor's findings, interfaces and kernel settings, logs, the variables that matter, and of each "
        "camera\nregisters, document and features. Cameras are only read. What could not be had stands in "
        "manifest.json\nwith its reason.\nExample: orv-gentl support-bundle orv-support.tar.gz");
}

} // namespace cli
