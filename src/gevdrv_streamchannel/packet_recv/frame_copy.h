// The one copy of a picture's bytes: from the datagram to their place in the frame.
#pragma once

#include <cstddef>

namespace gev::streamchannel::impl {

// Frames from this size on are written past the caches: they would not stay in the near ones until the consumer reads
// them, and a write that goes there first has to read the old bytes from memory. Bytes.
inline constexpr size_t large_frame = 1 << 20;

// Any alignment and count. Bytes of a large frame are another thread's to read only after finish_copies().
void copy_to_frame(std::byte* to, const std::byte* from, size_t count, size_t frame_size) noexcept;
void finish_copies() noexcept;

} // namespace gev::streamchannel::impl
