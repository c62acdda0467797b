// The one copy of a picture's bytes: from the datagram to their place in the frame.
#pragma once

#include "gvsp_packet.h"
#include "gvsp_recv_interface.h"

#include <cstddef>

namespace gev::streamchannel::impl {

// Frames from this size on are written past the caches: they would not stay in the near ones until the consumer reads
// them, and a write that goes there first has to read the old bytes from memory. Bytes.
inline constexpr size_t large_frame = 1 << 20;

// Any alignment and count. Bytes of a large frame are another thread's to read only after finish_copies().
void copy_to_frame(std::byte* to, const std::byte* from, size_t count, size_t frame_size) noexcept;
void finish_copies() noexcept;

// Puts a payload packet where its id says, cut to its share and to the frame. What was written, both 0 for nothing.
struct placed_bytes {
    uint64_t count = 0;
    uint64_t end = 0; // position in the frame behind the last one
};
[[nodiscard]] placed_bytes place_payload(const frame_context& frame, const block_geometry& geometry, uint32_t packet_id,
                                         const gvsp_parsed_packet::payload_body& payload) noexcept;
// Whether it would change nothing of what stands there; no more than `most` bytes of it are looked at.
[[nodiscard]] bool is_placed(const frame_context& frame, const block_geometry& geometry, uint32_t packet_id,
                             const gvsp_parsed_packet::payload_body& payload, uint64_t most) noexcept;

} // namespace gev::streamchannel::impl
