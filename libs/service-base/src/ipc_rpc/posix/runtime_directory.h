// Where the sockets of services lie.
#pragma once

#include <cstdint>
#include <expected>
#include <string>
#include <system_error>

namespace ipc_rpc::platform {

struct runtime_place {
    std::string path;
    std::uint32_t trusted_user; // whose service is to be trusted there, besides root and this user
};

// The first of $ORV_GENTL_RUNTIME_DIR, /run/orv-gentl-gev if it exists, $XDG_RUNTIME_DIR and
// /tmp/orv-gentl-gev-<uid>. In /run only root makes folders: the owner of that one is whom root has chosen to run the
// service. The last is made when `create` is set, for its user alone, and refused (permission_denied) when it is a
// link, not a folder, someone else's or open to others.
[[nodiscard]] std::expected<runtime_place, std::error_code> runtime_directory(bool create);

} // namespace ipc_rpc::platform
