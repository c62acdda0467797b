// Keeps strangers out of the stream socket.
#pragma once

#include <cstdint>
#include <system_error>

namespace gev::streamchannel::posix {

// From now on the kernel drops datagrams of other IPv4 addresses (host byte order) before they take room in the
// socket's buffer. Any port of the address passes: cameras stream from a port of their own choice.
[[nodiscard]] std::error_code accept_only_from(int socket, uint32_t address) noexcept;

} // namespace gev::streamchannel::posix
