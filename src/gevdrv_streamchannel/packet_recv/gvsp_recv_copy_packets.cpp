#include "gvsp_recv_copy_packets.h"

#include <cstring>
#include <utility>

namespace gev::streamchannel::impl {

void gvsp_recv_copy_packets::setup(uint32_t, uint32_t) {
    stats = {};
    position = 0;
}

bool gvsp_recv_copy_packets::revoke_frame(const void* buffer) {
    if (buffer == nullptr || context.buffer != buffer) return false;
    context = {};
    position = 0;
    return true;
}

void gvsp_recv_copy_packets::flush(uint64_t now) {
    if (context.buffer != nullptr) deliver(now, frame_flags::flushed);
}

void gvsp_recv_copy_packets::deliver(uint64_t now, uint32_t flags) {
    const uint32_t end_mark = 0;
    if (context.size - position >= sizeof end_mark) {
        std::memcpy(context.data + position, &end_mark, sizeof end_mark);
    }
    ++stats.complete_frames;
    frame_info info;
    info.context = std::exchange(context, {});
    info.filled_size = std::exchange(position, 0);
    info.frame_id = frames++;
    info.start_time = start_time;
    info.end_time = now;
    info.flags = flags;
    functions.deliver(info, stats);
}

bool gvsp_recv_copy_packets::receive_packet(uint64_t now, std::span<const std::byte> datagram) {
    const auto length = static_cast<uint32_t>(datagram.size());
    const uint64_t needed = uint64_t{length} + 2 * sizeof length;
    // The second round is that of a datagram that closed a collection.
    for (int round = 0; round < 2; ++round) {
        if (position == 0) {
            if (context.buffer == nullptr) context = functions.get_frame();
            if (context.buffer == nullptr) {
                ++stats.no_buffer_frames;
                return true;
            }
            start_time = now;
        }
        if (context.size - position >= needed) {
            std::memcpy(context.data + position, &length, sizeof length);
            if (length != 0) std::memcpy(context.data + position + sizeof length, datagram.data(), length);
            position += sizeof length + length;
            return true;
        }
        if (position == 0) return true; // larger than a whole buffer: cannot be kept
        deliver(now, 0);
    }
    return true;
}

} // namespace gev::streamchannel::impl
