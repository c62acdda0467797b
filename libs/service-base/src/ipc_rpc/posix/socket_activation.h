// A listening socket that a service manager opened for this process and handed over: descriptor 3, announced by
// LISTEN_PID and LISTEN_FDS, as sd_listen_fds(3) describes. Whoever connects before the process runs waits in it.
#pragma once

#include "posix/file_descriptor.h"

#include <expected>
#include <optional>
#include <string>
#include <system_error>

namespace ipc_rpc::platform {

// Nothing when none was handed to this process. invalid_argument when it is not exactly one listening
// sequential-packet socket at this path. Once in a process.
[[nodiscard]] std::expected<std::optional<file_descriptor>, std::error_code>
take_activated_socket(const std::string& path);

} // namespace ipc_rpc::platform
