#include "posix/runtime_directory.h"
#include "posix/file_descriptor.h"

#include <sys/stat.h>

#include <cstdlib>

namespace ipc_rpc::platform {

runtime_choice choose_runtime_directory() {
    if (const char* own = std::getenv("ORV_GENTL_RUNTIME_DIR"); own != nullptr && *own != '\0') {
        return {own, "$ORV_GENTL_RUNTIME_DIR", geteuid(), false};
    }
    struct stat found {};
    constexpr const char* system_wide = "/run/orv-gentl-gev";
    if (lstat(system_wide, &found) == 0 && S_ISDIR(found.st_mode)) {
        return {system_wide, "it exists", found.st_uid, false};
    }
    if (const char* session = std::getenv("XDG_RUNTIME_DIR"); session != nullptr && *session == '/') {
        return {session, "$XDG_RUNTIME_DIR", geteuid(), false};
    }
    return {"/tmp/orv-gentl-gev-" + std::to_string(geteuid()), "no other place is set", geteuid(), true};
}

std::expected<runtime_place, std::error_code> runtime_directory(bool create) {
    const runtime_choice chosen = choose_runtime_directory();
    if (chosen.is_last) {
        const char* const path = chosen.path.c_str();
        struct stat found {};
        if (create && mkdir(path, S_IRWXU) != 0 && errno != EEXIST) return std::unexpected(last_error());
        if (lstat(path, &found) != 0) return std::unexpected(last_error());
        if (!S_ISDIR(found.st_mode) || found.st_uid != geteuid() || (found.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
            return std::unexpected(std::make_error_code(std::errc::permission_denied));
        }
    }
    return runtime_place{chosen.path, chosen.trusted_user};
}

} // namespace ipc_rpc::platform
