#include "installation_checks.h"

#include "../posix/child_program.h"
#include "../posix/service_place.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <vector>

namespace cli {

namespace {

namespace fs = std::filesystem;

std::vector<std::string> entries_of(const std::string& list) {
    std::vector<std::string> entries;
    for (size_t begin = 0; begin <= list.size();) {
        const size_t end = std::min(list.find(':', begin), list.size());
        if (end > begin) entries.push_back(list.substr(begin, end - begin));
        begin = end + 1;
    }
    return entries;
}

std::vector<fs::path> producers_in(const fs::path& entry) {
    std::error_code ignored;
    if (!fs::is_directory(entry, ignored)) return {entry};
    std::vector<fs::path> found;
    for (const auto& file : fs::directory_iterator{entry, ignored})
        if (file.path().extension() == ".cti") found.push_back(file.path());
    return found;
}

// What systemd says of the service's unit in one word; empty where there is no systemd, or no such unit.
std::string unit_state() {
    std::error_code ignored;
    constexpr const char* program = "/usr/bin/systemctl";
    if (!has_service_unit() || !fs::exists(program, ignored)) return {};
    const std::string answer = run_program({program, "is-active", service_unit}, std::chrono::seconds{3}).output;
    return answer.substr(0, answer.find('\n'));
}

} // namespace

fs::path library_for_applications(const fs::path& own) {
    std::error_code ignored;
    const fs::path multipart = own.parent_path() / "multipart" / own.filename();
    return fs::canonical(fs::exists(multipart, ignored) ? multipart : own);
}

void check_producer_path(const std::string& list, const fs::path& own, std::vector<finding>& findings) {
    constexpr const char* check = "GENICAM_GENTL64_PATH";
    std::error_code ignored;
    std::map<fs::path, unsigned> named; // files by what they are in the end
    std::string others;
    for (const std::string& entry : entries_of(list)) {
        if (!fs::exists(entry, ignored)) {
            findings.push_back({check, grade::advice, fmt::format("'{}' does not exist", entry), "folders that exist",
                                "an installation that is gone, or a slip of the pen", "take it out of the variable"});
            continue;
        }
        for (const fs::path& file : producers_in(entry)) {
            const fs::path real = fs::weakly_canonical(file, ignored);
            if (++named[real] == 1 && real.filename() != own.filename()) others += fmt::format(" {}", real.string());
        }
    }
    std::vector<std::string> ours;
    for (const auto& [file, times] : named) {
        if (file.filename() == own.filename()) ours.push_back(file.string());
        if (times == 1) continue;
        findings.push_back({check, grade::advice, fmt::format("'{}' is named {} times", file.string(), times), "once",
                            "some applications load it as often and show each camera as often",
                            "take the repetition out of the variable"});
    }
    if (ours.empty()) {
        findings.push_back({check, grade::advice, list.empty() ? "not set here" : "without this library",
                            library_for_applications(own).parent_path().string(),
                            "applications started from here do not find it",
                            "eval \"$(orv-gentl env --sh)\"   (other situations: orv-gentl env --help)"});
    } else if (ours.size() > 1) {
        findings.push_back(
            {check, grade::bad, fmt::format("{} of this library: {}", ours.size(), fmt::join(ours, ", ")), "one",
             "each camera is shown as often, and the second to open it fails", "keep one of them in the variable"});
    } else {
        findings.push_back({check, grade::ok, ours.front(), "this library, once", {}, {}});
    }
    if (!others.empty())
        findings.push_back({"other producers",
                            grade::ok,
                            others.substr(1),
                            "",
                            {},
                            "GigE Vision ones among them list the same cameras; a camera can be opened through one"});
}

void check_installation(const fs::path& own, std::vector<finding>& findings) {
    const char* list = std::getenv("GENICAM_GENTL64_PATH");
    check_producer_path(list == nullptr ? "" : list, own, findings);
    const std::string state = unit_state();
    if (state.empty()) return;
    const bool on = state == "active";
    findings.push_back({service_unit, on ? grade::ok : grade::advice, state, "active",
                        on ? "" : "no service is started when an application asks for one",
                        on ? "" : fmt::format("sudo systemctl enable --now {}", service_unit)});
}

} // namespace cli
