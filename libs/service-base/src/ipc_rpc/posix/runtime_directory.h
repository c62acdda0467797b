// Where the sockets of services lie.
#pragma once

#include <cstdint>
#include <expected>
#include <string>
#include <system_error>

namespace ipc_rpc::platform {

// The first of $ORV_GENTL_RUNTIME_DIR, /run/orv-gentl-gev if it is a folder and no link, $XDG_RUNTIME_DIR and
// /tmp/orv-gentl-gev-<uid>, and what decided it, in words. Only the third's being there and the last's rights are not
// looked at.
struct runtime_choice {
    std::string path;
    const char* because;
    std::uint32_t trusted_user; // whose service is to be trusted there, besides root and this user
    bool is_last;               // the user's own in /tmp
};
[[nodiscard]] runtime_choice choose_runtime_directory();

struct runtime_place {
    std::string path;
    std::uint32_t trusted_user;
};

// The one chosen. In /run only root makes folders: the owner of that one is whom root has chosen to run the service.
// The last is made when `create` is set, for its user alone, and refused (permission_denied) when it is a link, not a
// folder, someone else's or open to others.
[[nodiscard]] std::expected<runtime_place, std::error_code> runtime_directory(bool create);

} // namespace ipc_rpc::platform
