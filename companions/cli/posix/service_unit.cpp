#include "service_unit.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string_view>
#include <system_error>
#include <vector>

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

namespace cli {

namespace {

namespace fs = std::filesystem;

std::optional<fs::path> file_of_unit() {
    std::error_code ignored;
    if (!fs::exists("/run/systemd/system", ignored)) return {};
    // The folders of systemd.unit(5) that units are installed or linked in, in their order.
    for (const fs::path folder : {"/etc/systemd/system", "/run/systemd/system", "/usr/local/lib/systemd/system",
                                  "/usr/lib/systemd/system", "/lib/systemd/system"})
        if (fs::exists(folder / socket_unit, ignored)) return folder / socket_unit;
    return {};
}

// The last one, as for systemd.
std::string value_in_unit(std::string_view key) {
    const auto file = file_of_unit();
    if (!file) return {};
    std::string value;
    std::ifstream lines{*file};
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with(key)) value = line.substr(key.size());
    return value;
}

// By the accounts of the system, for this process's user.
std::vector<gid_t> groups_at_next_login() {
    const passwd* const user = getpwuid(geteuid()); // NOLINT(concurrency-mt-unsafe): asked by the main thread alone
    if (user == nullptr) return {};
    int count = 64;
    std::vector<gid_t> groups(static_cast<size_t>(count));
    while (getgrouplist(user->pw_name, user->pw_gid, groups.data(), &count) < 0 &&
           static_cast<size_t>(count) > groups.size())
        groups.resize(static_cast<size_t>(count));
    groups.resize(std::min(static_cast<size_t>(count), groups.size()));
    return groups;
}

} // namespace

bool has_service_unit() { return file_of_unit().has_value(); }

// As systemctl masks, and as systemd sees it: a link to /dev/null, or an empty file.
bool is_unit_masked() {
    const auto file = file_of_unit();
    std::error_code unknown;
    if (!file) return false;
    return fs::is_character_file(*file, unknown) || (fs::file_size(*file, unknown) == 0 && !unknown);
}

std::string start_of_unit(const std::string& verb) {
    return fmt::format("{}sudo systemctl {} {}",
                       is_unit_masked() ? fmt::format("sudo systemctl unmask {} && ", socket_unit) : "", verb,
                       socket_unit);
}

std::string group_of_unit() { return value_in_unit("SocketGroup="); }
std::string unit_file() { return file_of_unit().value_or(fs::path{}); }
std::string socket_of_unit() { return value_in_unit("ListenSequentialPacket="); }

membership membership_in(const std::string& group) {
    const struct group* const known =
        getgrnam(group.c_str()); // NOLINT(concurrency-mt-unsafe): asked by the main thread alone
    if (known == nullptr) return membership::no_such_group;
    const gid_t wanted = known->gr_gid;
    std::vector<gid_t> own(static_cast<size_t>(std::max(getgroups(0, nullptr), 0)));
    own.resize(static_cast<size_t>(std::max(getgroups(static_cast<int>(own.size()), own.data()), 0)));
    if (wanted == getegid() || std::ranges::find(own, wanted) != own.end()) return membership::in_force;
    const auto later = groups_at_next_login();
    return std::ranges::find(later, wanted) != later.end() ? membership::with_next_login : membership::none;
}

} // namespace cli
