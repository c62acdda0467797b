#include "installation_checks.h"

#include "../posix/child_program.h"
#include "../posix/service_place.h"
#include "../posix/service_unit.h"
#include "../posix/this_process.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gds_shared/product_constants.h>
#include <gds_shared/prop_store_init.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <vector>

namespace cli {

namespace {

namespace fs = std::filesystem;

std::vector<std::string> path_entries(const std::string& list) {
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

// What systemd says of the installed units, KEY=VALUE in each line; nothing where there is no systemd, or no such unit.
std::string systemctl(const std::vector<std::string>& words) {
    std::error_code ignored;
    std::vector<std::string> command{"/usr/bin/systemctl"};
    if (!has_service_unit() || !fs::exists(command.front(), ignored)) return {};
    command.insert(command.end(), words.begin(), words.end());
    return run_program(command, std::chrono::seconds{3}).output;
}

std::string value_of(const std::string& key, const std::string& lines) {
    const std::string text = '\n' + lines, before = '\n' + key + '=';
    const size_t begin = text.find(before);
    if (begin == text.npos) return {};
    const size_t start = begin + before.size();
    return text.substr(start, text.find('\n', start) - start);
}

// The unit of the socket with its drop-ins, where systemd tells of it; else what its file says.
struct socket_settings {
    std::string group, listens_at;
};
socket_settings settings_of_unit() {
    if (!uses_service_unit()) return {};
    const std::string unit = systemctl({"show", "--all", "--property=LoadState,SocketGroup,Listen", socket_unit});
    if (value_of("LoadState", unit) != "loaded") return {group_of_unit(), socket_of_unit()};
    const std::string listen = value_of("Listen", unit); // "PATH (SequentialPacket)"
    return {value_of("SocketGroup", unit), listen.substr(0, listen.rfind(" ("))};
}

// One that was installed by hand goes before the packages'.
void check_unit_file(const fs::path& listens_at, std::vector<finding>& findings) {
    if (listens_at.empty() || listens_at.filename() == gds_shared::service_pipe_name(gds_shared::gev_product)) return;
    const std::string file = unit_file();
    const bool is_packaged = file.starts_with("/usr/lib/") || file.starts_with("/lib/");
    findings.push_back({socket_unit, listens_at.parent_path() == service_folder() ? grade::bad : grade::advice,
                        fmt::format("'{}' is another version's: it listens at '{}'", file, listens_at.string()),
                        "the unit of this version", "this library does not speak to the service that it starts",
                        is_packaged
                            ? "install the package of this version"
                            : fmt::format("sudo rm '{}' && sudo systemctl daemon-reload && sudo systemctl restart "
                                          "{}   # where an installation that is gone has left it",
                                          file, socket_unit)});
}

void check_units(std::vector<finding>& findings) {
    const std::string answer = systemctl({"is-active", socket_unit});
    const std::string socket = answer.substr(0, answer.find('\n'));
    if (socket.empty() || socket.contains(' ')) return; // a complaint: no systemd answers
    const bool on = socket == "active";
    findings.push_back({socket_unit, on ? grade::ok : grade::advice, is_unit_masked() ? "masked" : socket, "active",
                        on ? "" : "no service is started when an application asks for one",
                        on ? "" : start_of_unit("enable --now")});
    // It is started again for ever, so that a service that cannot start is seldom seen in the state 'failed'.
    const std::string service = systemctl({"show", "--property=ActiveState,SubState,Result,NRestarts", service_unit});
    const std::string state = value_of("ActiveState", service), result = value_of("Result", service);
    const std::string restarts = value_of("NRestarts", service);
    const bool again = value_of("SubState", service) == "auto-restart" ||
                       (state == "activating" && !restarts.empty() && restarts != "0");
    if (state != "failed" && !again) return;
    findings.push_back({service_unit, grade::bad,
                        again ? fmt::format("ends and is started again ({}, {} times)", result, restarts)
                              : fmt::format("failed ({})", result),
                        "active, or inactive until an application asks", "it ends by itself as soon as it is started",
                        fmt::format("its log says why: systemctl status {0}; journalctl -u {0}", service_unit)});
}

// Whether this user may use the installed service, also while it does not run.
void check_group(const std::string& group, std::vector<finding>& findings) {
    if (group.empty() || is_root()) return;
    finding result{fmt::format("group '{}'", group), grade::bad, {}, "a member", "the service lets in its members", {}};
    switch (membership_in(group)) {
    case membership::in_force:
        result = {result.check, grade::ok, "a member", "a member", {}, {}};
        break;
    case membership::with_next_login:
        result.found = "a member, but this login is from before";
        result.remedy = "log in again (a desktop: out of the session and in)";
        break;
    case membership::none:
        result.found = fmt::format("user '{}' is no member", user_name());
        result.remedy = fmt::format("sudo adduser {} {}   # and log in again", user_name(), group);
        break;
    case membership::no_such_group:
        result.found = "does not exist";
        result.remedy = fmt::format("sudo groupadd --system {0} && sudo systemctl restart {1}", group, socket_unit);
        break;
    }
    findings.push_back(std::move(result));
}

// Of the library where it is loaded from this shell, and of the service that stands beside this program, but for the
// variables of its own surroundings.
struct all_settings {
    std::vector<std::string> files, problems;
    std::vector<named_log> logs;
};
all_settings read_settings(const fs::path& own) {
    all_settings found;
    const auto add = [](std::vector<std::string>& all, const std::string& one) {
        if (std::ranges::find(all, one) == all.end()) all.push_back(one);
    };
    for (const auto& [key, file] : {named_log{"cti_log_file", own}, named_log{"service_log_file", program_file()}}) {
        if (file.empty()) continue;
        gds_shared::settings_report report;
        const auto chain = gds_shared::make_property_chain(gds_shared::gev_product, file.parent_path(), report);
        const std::string log = gds_helper::read_string_or(*chain, key, "");
        if (!log.empty()) found.logs.push_back({key, log});
        for (const fs::path& each : report.files) add(found.files, each.string());
        for (const std::string& problem : report.problems) add(found.problems, problem);
    }
    return found;
}

// What keeps a log from being written; empty: nothing that can be seen from here.
std::string problem_of(const named_log& log) {
    std::error_code error;
    const fs::path folder = log.file.parent_path();
    // A relative one is looked for where the program stands; this one the unit makes.
    if (!log.file.is_absolute() || (has_service_unit() && folder == "/var/log/orv-gentl-gev")) return {};
    const bool is_missing = !fs::exists(folder, error) && !error; // and not closed to this user
    if (std::string_view{log.key} == "service_log_file")
        return is_missing ? fmt::format("'{}': there is no folder '{}'", log.key, folder.string()) : "";
    fs::path place = fs::exists(log.file, error) ? log.file : folder; // the library makes its folder
    while (!fs::exists(place, error) && place.has_relative_path()) place = place.parent_path();
    return may_write(place) ? "" : fmt::format("'{}': '{}' cannot be written", log.key, place.string());
}

void check_settings(const fs::path& own, std::vector<finding>& findings) {
    auto [files, problems, logs] = read_settings(own);
    for (const named_log& log : logs)
        if (const std::string problem = problem_of(log); !problem.empty()) problems.push_back(problem);
    if (problems.empty())
        findings.push_back({"settings files",
                            grade::ok,
                            files.empty() ? "none" : fmt::format("{}", fmt::join(files, ", ")),
                            "none, or such as can be used",
                            {},
                            {}});
    else
        findings.push_back({"settings files", grade::advice, fmt::format("{}", fmt::join(problems, "\n")),
                            "none, or such as can be used", "what is not used has its default; a log may be missing",
                            "mend them, then start application and service again"});
}

// Its single library, judged.
finding judge_producer(const fs::path& file, const fs::path& own) {
    const fs::path wanted = library_for_applications(own);
    std::error_code ignored;
    finding result{"GENICAM_GENTL64_PATH", grade::ok, file.string(), "this library, once", {}, {}};
    if (file == wanted) return result;
    const bool is_plain = file.parent_path().filename() == "plain" ||
                          fs::exists(file.parent_path() / "multipart" / file.filename(), ignored);
    result.of = grade::advice;
    result.found = fmt::format("'{}'{}", file.string(), is_plain ? ", the plain one" : " of another installation");
    result.wanted = wanted.parent_path().string();
    result.why = is_plain ? "several applications refuse it, as it lacks the functions on buffer parts"
                          : "applications load that one, which may be of another version than the service";
    result.remedy = fmt::format("put '{}' in the place of '{}'", result.wanted, file.parent_path().string());
    return result;
}

} // namespace

std::vector<named_log> logs_of_settings(const fs::path& own) { return read_settings(own).logs; }

fs::path library_for_applications(const fs::path& own) {
    std::error_code ignored;
    const fs::path multipart = own.parent_path() / "multipart" / own.filename();
    return fs::canonical(fs::exists(multipart, ignored) ? multipart : own);
}

std::string library_remedy() {
    std::error_code ignored;
    const fs::path folder = program_file().parent_path().parent_path();
    return fs::exists(folder / "CMakeCache.txt", ignored)
               ? fmt::format("give its path with --cti, or build it: cmake --build {}", folder.string())
               : "give its path with --cti, or install the package 'orv-gentl-gev' again";
}

void check_producer_path(const std::string& list, const fs::path& own, std::vector<finding>& findings) {
    constexpr const char* check = "GENICAM_GENTL64_PATH";
    std::error_code ignored;
    std::map<fs::path, unsigned> named; // files by what they are in the end
    std::string others;
    for (const std::string& entry : path_entries(list)) {
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
                            "eval \"$(orv-gentl env --sh)\"   # other situations: orv-gentl env --help"});
    } else if (ours.size() > 1) {
        findings.push_back(
            {check, grade::bad, fmt::format("{} of this library: {}", ours.size(), fmt::join(ours, ", ")), "one",
             "each camera is shown as often, and the second to open it fails", "keep one of them in the variable"});
    } else {
        findings.push_back(judge_producer(ours.front(), own));
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
    constexpr const char* variable = "GENICAM_GENTL64_PATH";
    const char* list = std::getenv(variable);
    if (!own.empty())
        attempt(variable, findings, [&] { check_producer_path(list == nullptr ? "" : list, own, findings); });
    attempt("settings files", findings, [&] { check_settings(own, findings); });
    socket_settings unit;
    attempt(socket_unit, findings, [&] { unit = settings_of_unit(); });
    attempt(socket_unit, findings, [&] { check_unit_file(unit.listens_at, findings); });
    attempt(socket_unit, findings, [&] { check_units(findings); });
    attempt("group", findings, [&] { check_group(unit.group, findings); });
}

} // namespace cli
