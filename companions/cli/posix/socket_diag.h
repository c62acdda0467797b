// What only the kernel's socket monitoring tells of other processes' sockets.
#pragma once

#include <cstdint>
#include <optional>

namespace cli {

// Of the UDP socket with this inode, of whatever process: the size of its receive buffer in force, bytes. Nothing where
// the kernel has no socket monitoring.
[[nodiscard]] std::optional<uint64_t> receive_buffer_of(uint64_t inode);

} // namespace cli
