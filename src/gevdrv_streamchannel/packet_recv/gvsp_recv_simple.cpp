#include "gvsp_recv_simple.h"

#include "frame_copy.h"

#include <gds_helper/log.h>

#include <algorithm>

namespace gev::streamchannel::impl {

namespace {

using gds_helper::log::gvsp_logger;

// The network holds no packet back for as long, nor is this thread away. Microseconds.
constexpr uint64_t longest_held_back = 250'000;

template <class Block>
uint64_t silence_of(const Block& block, uint64_t now) {
    return ended_frames::elapsed(now, static_cast<uint64_t>(block.last_packet));
}

// How long a frame has been quiet for a leader that comes, which may be its own and held up, or this thread was away.
// There are no deadlines whose passing would tell, but behind the first id of a round other leaders come in between.
template <class Block>
uint64_t silence_before_leader(const Block& block, uint64_t now) {
    const uint64_t silence = silence_of(block, now);
    const bool may_be_own = !block.packets.holds(0) && block.block_id != 1 && silence <= longest_held_back;
    return may_be_own ? 0 : silence;
}

} // namespace

gvsp_recv_simple::gvsp_recv_simple(const stream_functions& stream) : functions(stream) { setup(0, 0); }

void gvsp_recv_simple::setup(uint32_t packet_size, uint32_t new_payload_size) {
    stats = {};
    frames_begun = 0;
    unsupported.setup();
    ids.restart();
    last_leader = {};
    payload_size = new_payload_size;
    for (const bool extended_ids : {false, true}) {
        geometry[extended_ids] = block_geometry::of(packet_size, payload_size, extended_ids);
    }
    ended_recently.clear();
    for (size_t i = 0; i < blocks.size(); ++i) {
        received_packets packets = std::move(blocks[i].packets);
        packets.reserve(geometry[1].expected_packets); // the smaller payload of extended ids needs more
        blocks[i] = block{};
        blocks[i].packets = std::move(packets);
        ring[i] = &blocks[i];
    }
}

frame_progress gvsp_recv_simple::progress() const {
    if (frames_begun == 0) return {};
    const block& youngest = *ring[0];
    return {.serial = frames_begun,
            .packets = youngest.packets.highest() + 1,
            .packets_expected = youngest.geometry.expected_packets,
            .under_way = youngest.active && youngest.packets.trailer() == 0};
}

gvsp_recv_simple::block* gvsp_recv_simple::find(uint64_t block_id) noexcept {
    const auto found = std::ranges::find_if(
        blocks, [&](const block& candidate) { return candidate.active && candidate.block_id == block_id; });
    return found == blocks.end() ? nullptr : &*found;
}

// A frame that lacks packets is open until younger ones are whole, so in single-frame operation until the next one,
// which has the same id. Its leader tells; where that is lost, a packet that came before with other bytes does, or one
// that comes when nothing is under way any more. None of it may get in: the frame would seem whole.
bool gvsp_recv_simple::is_of_another(const block& current, const gvsp_parsed_packet& packet,
                                     uint64_t now) const noexcept {
    const received_packets& packets = current.packets;
    const bool repeated = packets.holds(packet.packet_id);
    if ((repeated || packets.trailer() != 0) && silence_of(current, now) > longest_held_back) return true;
    return repeated && packet.kind == gvsp_packet_kind::payload &&
           !current.brings_the_same(packet.packet_id, packet.payload, payload_size);
}

bool gvsp_recv_simple::receive_packet(uint64_t now, std::span<const std::byte> datagram) {
    const gvsp_parsed_packet packet = parse_gvsp_packet(datagram.data(), datagram.size());
    if (packet.kind == gvsp_packet_kind::invalid) unsupported.look_at(packet);
    if (packet.kind == gvsp_packet_kind::invalid || packet.kind == gvsp_packet_kind::status_only) return false;
    extended = packet.is_extended;
    const uint32_t id = packet.packet_id;
    const uint64_t* leader_timestamp = packet.kind == gvsp_packet_kind::leader ? &packet.leader.timestamp : nullptr;
    const auto time_per_frame = static_cast<uint64_t>(frame_time());
    block* current = find(packet.block_id);
    bool overtaken = false;
    if (current != nullptr && leader_timestamp != nullptr &&
        ended_recently.begins_another(current->leader_mark(), silence_before_leader(*current, now), *leader_timestamp,
                                      time_per_frame)) {
        restart_stream(now);
        current = nullptr;
    } else if (current != nullptr && leader_timestamp == nullptr && is_of_another(*current, packet, now)) {
        gvsp_logger().info("r[{:8}] Packet {} is of another frame with this id.", current->frame_id, id);
        end_up_to(*current, now);
        ended_recently.next_came(packet.block_id);
        current = nullptr;
    }
    if (current == nullptr) {
        const auto verdict = ended_recently.judge(packet.block_id, id, leader_timestamp, now, time_per_frame);
        if (verdict == ended_frames::verdict::late) {
            ++stats.packets_late;
            if (packet.kind == gvsp_packet_kind::trailer)
                ended_recently.trailer_was_late(packet.block_id, now, longest_held_back);
            return true;
        }
        if (verdict == ended_frames::verdict::restart) {
            overtaken = ended_recently.trailer_was_of_next(packet.block_id, now, longest_held_back);
            restart_stream(now);
        }
        current = &create_new_block(now, packet.block_id);
    }
    current->last_packet = static_cast<int64_t>(now);
    switch (packet.kind) {
    case gvsp_packet_kind::leader:
        current->packets.add(id);
        last_leader = current->leader = packet.leader;
        ended_recently.leader_came(packet.leader.timestamp);
        break;
    case gvsp_packet_kind::trailer:
        current->packets.add_trailer(id);
        current->chunk_layout_id = packet.trailer.chunk_layout_id;
        current->chunk_length = packet.trailer.chunk_data_payload_length;
        break;
    case gvsp_packet_kind::payload: {
        if (current->packets.holds(id)) break;
        const packet_share share = share_of(current->geometry, payload_size, id, packet.payload.data_size);
        current->packets.add_payload(id, share, packet.payload.data_size);
        const placed_bytes placed = place_payload(current->context, current->geometry, id, packet.payload);
        current->filled_size = std::max(current->filled_size, placed.end);
        break;
    }
    default:
        current->packets.add(id);
        break;
    }
    // All of its frame came before it, and counted as late. What the next one with its id brings must not fill it.
    if (overtaken) end_up_to(*current, now);
    return true;
}

// One rule for both receivers, see ended_frames.h.
void gvsp_recv_simple::restart_stream(uint64_t now) {
    gvsp_logger().info("now={:15} The camera started over.", now);
    for (auto oldest = ring.rbegin(); oldest != ring.rend(); ++oldest) end_block(**oldest, now, false);
    ids.restart();
    ended_recently.start_over(now);
}

// What is older will not be finished any more.
void gvsp_recv_simple::end_up_to(const block& last, uint64_t now) {
    for (auto oldest = ring.end(); oldest != ring.begin();) {
        block& each = **--oldest;
        end_block(each, now, false);
        if (&each == &last) break;
    }
}

gvsp_recv_simple::block& gvsp_recv_simple::create_new_block(uint64_t now, uint64_t block_id) {
    const frame_ids::opened_frame opened = ids.opened(block_id, extended, 0);
    const uint64_t frame_id = opened.id;
    if (opened.skipped > 0) {
        gvsp_logger().info("r[{:8}] !!!! we skipped {} frames, trying to recover ...", frame_id, opened.skipped);
    }
    stats.skipped_frames += opened.lost;
    end_block(*ring[3], now, false);
    end_block(*ring[2], now, false);
    std::rotate(ring.begin(), ring.end() - 1, ring.end());

    block& created = *ring[0];
    if (created.active) {
        gvsp_logger().info("r[{:8}] Killing block due to overrun.", frame_id);
        end_block(created, now, false);
    }
    created.begin(block_id, frame_id, static_cast<int64_t>(now), last_leader, geometry[extended]);
    created.context = functions.get_frame();
    created.active = true;
    ++frames_begun;
    return created;
}

void gvsp_recv_simple::end_block(block& ended, uint64_t now, bool flushed) {
    if (!ended.active) return;
    ended.active = false;
    const bool complete = ended.packets.complete_as_announced();
    if (!flushed) {
        stats.packets_expected += ended.packets.due();
        stats.packets_received += std::min(ended.packets.count(), ended.packets.due());
    }
    if (complete) stats.skipped_frames += ids.completed(ended.frame_id);
    ended_recently.add(ended.block_id, ended.leader_mark(), now, {}, complete);
    if (ended.context.size == 0) {
        ++stats.no_buffer_frames;
        if (ended.context.buffer == nullptr) return; // an empty buffer goes back to its owner all the same
    }
    if (ended.context.size != 0) ++(complete ? stats.complete_frames : stats.incomplete_frames);

    frame_info info = ended.take_info(payload_size, {complete, extended, flushed});
    info.start_time = static_cast<uint64_t>(ended.start_time);
    info.end_time = now;
    finish_copies();
    functions.deliver(info, stats);
}

int64_t gvsp_recv_simple::check_timers(uint64_t now) {
    // No timers: looks for a finished block.
    const auto finished = std::ranges::find_if(
        ring, [](const block* candidate) { return candidate->active && candidate->packets.complete_as_announced(); });
    if (finished == ring.end()) return -1;
    end_up_to(**finished, now);
    return -1;
}

bool gvsp_recv_simple::revoke_frame(const void* buffer) {
    if (buffer == nullptr) return false;
    const auto found = std::ranges::find_if(
        blocks, [&](const block& candidate) { return candidate.active && candidate.context.buffer == buffer; });
    if (found == blocks.end()) return false;
    found->context = {};
    return true;
}

void gvsp_recv_simple::flush(uint64_t now) {
    for (block& open : blocks) end_block(open, now, true);
}

} // namespace gev::streamchannel::impl
