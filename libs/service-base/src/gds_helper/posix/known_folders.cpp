// The folders of a user and of the system where settings, logs and runtime files lie.
#include "platform.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

namespace gds_helper::platform {

namespace {

std::filesystem::path home_folder() {
    if (const char* home = std::getenv("HOME"); home != nullptr && home[0] == '/') return home;
    passwd entry{};
    passwd* found = nullptr;
    std::array<char, 4096> text{};
    if (getpwuid_r(geteuid(), &entry, text.data(), text.size(), &found) == 0 && found != nullptr &&
        found->pw_dir != nullptr && found->pw_dir[0] == '/') {
        return found->pw_dir;
    }
    return {};
}

// The base directory specification has relative values ignored.
std::filesystem::path folder(const char* variable, const char* below_home) {
    if (const char* value = std::getenv(variable); value != nullptr && value[0] == '/') return value;
    const std::filesystem::path home = home_folder();
    return home.empty() ? home : home / below_home;
}

} // namespace

std::filesystem::path user_settings_folder() { return folder("XDG_CONFIG_HOME", ".config"); }
std::filesystem::path machine_settings_folder() { return "/etc"; }
std::filesystem::path cache_folder() { return folder("XDG_CACHE_HOME", ".cache"); }

} // namespace gds_helper::platform
