// Where the sockets of services lie.
#pragma once

#include <expected>
#include <string>
#include <system_error>

namespace ipc_rpc::platform {

// The first of $ORV_GENTL_RUNTIME_DIR, /run/orv-gentl-gev if it exists, $XDG_RUNTIME_DIR and
// /tmp/orv-gentl-gev-<uid>. The last is made when `create` is set, for its user alone, and refused
// (permission_denied) when it is a link, not a folder, someone else's or open to others.
[[nodiscard]] std::expected<std::string, std::error_code> runtime_directory(bool create);

} // namespace ipc_rpc::platform
