// What a receiver knows of a frame under way, and what is said of it when it ends.
#pragma once

#include "ended_frames.h"
#include "frame_copy.h"
#include "gvsp_packet.h"
#include "gvsp_recv_interface.h"
#include "received_packets.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace gev::streamchannel::impl {

// Part of each receiver's own record. Times are microseconds of the receiver's clock.
struct frame_block {
    using leader_body = gvsp_parsed_packet::leader_body;

    uint64_t block_id = 0; // as on the wire
    uint64_t frame_id = 0; // unwrapped
    frame_context context; // no buffer: none was available; size 0: nothing is stored
    int64_t start_time = 0;
    int64_t last_packet = 0; // time of it
    received_packets packets;
    block_geometry geometry;
    leader_body leader{}; // the last one seen, without its timestamp, until its own comes
    uint32_t chunk_layout_id = 0;
    uint64_t filled_size = 0;  // highest byte position written
    uint32_t chunk_length = 0; // of the payload, by the trailer; 0: no chunks

    // Everything but the destination, which the receiver asks for.
    void begin(uint64_t id, uint64_t unwrapped_id, int64_t time, const leader_body& last_leader,
               const block_geometry& sizes) noexcept {
        block_id = id;
        frame_id = unwrapped_id;
        start_time = last_packet = time;
        leader = last_leader;
        leader.timestamp = 0;
        geometry = sizes;
        packets.clear(sizes);
        chunk_layout_id = 0;
        filled_size = 0;
        chunk_length = 0;
    }

    [[nodiscard]] ended_frames::leader_mark leader_mark() const noexcept {
        return {packets.holds(0), leader.timestamp};
    }

    // From the first to the last packet that did not come.
    [[nodiscard]] ended_frames::packet_span lacking() const noexcept {
        const uint32_t due = packets.due();
        if (due == 0) return {};
        const uint64_t first = packets.first_missing(0, due - 1);
        if (first >= due) return {};
        uint32_t last = due - 1;
        while (!packets.is_missing(last)) --last;
        return {static_cast<uint32_t>(first), last};
    }

    // Whether a payload packet brings for an id that came before what came then. The network's repeats and the camera's
    // answers do; another frame with the same id does not, unless the pictures are alike there.
    [[nodiscard]] bool brings_the_same(uint32_t packet_id, const gvsp_parsed_packet::payload_body& payload,
                                       uint32_t payload_size) const noexcept {
        const uint64_t begin = (uint64_t{packet_id} - 1) * geometry.payload_per_packet;
        if (begin >= payload_size) return true;
        const uint64_t known = packets.size_of(packet_id, geometry.payload_per_packet);
        return is_placed(context, geometry, packet_id, payload, std::min(known, payload_size - begin));
    }

    struct ending {
        bool complete = false;
        bool extended_ids = false;
        bool flushed = false;
    };
    // Hands over the destination. Without the times and what only one receiver counts.
    [[nodiscard]] frame_info take_info(uint32_t payload_size, const ending& how) noexcept {
        frame_info info;
        info.context = std::exchange(context, {});
        info.size_x = leader.size_x;
        info.size_y = leader.size_y;
        info.pixel_format = leader.pixel_format;
        info.padding_x = leader.padding_x;
        info.expected_payload_size = data_size_of(packets, geometry, payload_size);
        info.filled_size = filled_size;
        info.frame_id = frame_id;
        info.block_id = block_id;
        info.timestamp = leader.timestamp;
        info.flags = (how.complete ? 0 : frame_flags::incomplete) | (how.extended_ids ? frame_flags::extended_ids : 0) |
                     (chunk_length != 0 ? frame_flags::has_chunk : 0) | (how.flushed ? frame_flags::flushed : 0);
        info.chunk_layout_id = chunk_layout_id;
        info.chunk_length = chunk_length;
        return info;
    }
};

} // namespace gev::streamchannel::impl
