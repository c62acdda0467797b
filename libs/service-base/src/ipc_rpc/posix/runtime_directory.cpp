#include "posix/runtime_directory.h"
#include "posix/file_descriptor.h"

#include <sys/stat.h>

#include <cstdlib>

namespace ipc_rpc::platform {

std::expected<runtime_place, std::error_code> runtime_directory(bool create) {
    if (const char* own = std::getenv("ORV_GENTL_RUNTIME_DIR"); own != nullptr && *own != '\0') {
        return runtime_place{own, geteuid()};
    }
    struct stat found {};
    constexpr const char* system_wide = "/run/orv-gentl-gev";
    if (lstat(system_wide, &found) == 0 && S_ISDIR(found.st_mode)) return runtime_place{system_wide, found.st_uid};
    if (const char* session = std::getenv("XDG_RUNTIME_DIR"); session != nullptr && *session == '/') {
        return runtime_place{session, geteuid()};
    }

    std::string fallback = "/tmp/orv-gentl-gev-" + std::to_string(geteuid());
    if (create && mkdir(fallback.c_str(), S_IRWXU) != 0 && errno != EEXIST) return std::unexpected(last_error());
    if (lstat(fallback.c_str(), &found) != 0) return std::unexpected(last_error());
    if (!S_ISDIR(found.st_mode) || found.st_uid != geteuid() || (found.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        return std::unexpected(std::make_error_code(std::errc::permission_denied));
    }
    return runtime_place{fallback, geteuid()};
}

} // namespace ipc_rpc::platform
