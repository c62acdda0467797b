// States of a block: free -> open -> end pending -> free. An open block ends when all packets up to its trailer came,
// when no deadline is left that could still improve it, or when the camera says that a packet is gone for good. It is
// delivered only once every older block is; too many open blocks push the oldest one out at once.
//
// Deadlines of a block: each missing range has one (first request after a share of the frame time, so that merely
// reordered packets can arrive, then one per repeat); the end deadline moves with each new highest packet and, when it
// strikes without a trailer, asks for the missing tail once. `next_timer` is never later than the least of them.
//
// Everything is a function of the datagrams and the times handed in. Nothing allocates after setup.
#include "gvsp_recv_resend.h"

#include "block_log.h"
#include "frame_copy.h"

#include <algorithm>
#include <new>
#include <utility>

namespace gev::streamchannel::impl {

namespace {

constexpr uint64_t ids_per_lap = 65535;
constexpr uint32_t last_requestable_packet = 0xFFFFFF;
// Bounds that keep sums of times far from overflow, whatever clock and parameters say.
constexpr int64_t longest_time = int64_t{1} << 60;
constexpr int64_t longest_delay = int64_t{frame_time::longest};
constexpr int64_t longest_per_packet = int64_t{1} << 30;

using gds_helper::log::gvsp_logger;

} // namespace

gvsp_recv_resend::gvsp_recv_resend(const stream_functions& stream) : functions(stream) { setup(0, 0); }

int64_t gvsp_recv_resend::relative(uint64_t now) const noexcept {
    return now <= time_base ? 0 : static_cast<int64_t>(std::min<uint64_t>(now - time_base, longest_time));
}

int64_t gvsp_recv_resend::resend_delay() const noexcept {
    const float delay = static_cast<float>(frame_time()) * params.resend_delay_factor;
    if (!(delay > 0)) return 0;
    return delay >= static_cast<float>(longest_delay) ? longest_delay : static_cast<int64_t>(delay);
}

void gvsp_recv_resend::set_resend_params(const resend_parameters& parameters) {
    params = parameters;
    if (frame_time.set(parameters)) {
        gvsp_logger().info("StreamPacketResendTimePerFrame {} us is too short, {} us are used.",
                           parameters.time_per_frame, impl::frame_time::shortest_set);
    }
}

void gvsp_recv_resend::setup(uint32_t packet_size, uint32_t new_payload_size) {
    payload_size = new_payload_size;
    for (const bool extended_ids : {false, true}) {
        geometry[extended_ids] = block_geometry::of(packet_size, payload_size, extended_ids);
    }
    stats = {};
    unsupported.setup();
    time_base = 0;
    prepare_blocks();
}

frame_progress gvsp_recv_resend::progress() const {
    if (youngest == nullptr) return {};
    const received_packets& packets = youngest->packets;
    return {.serial = frames_begun,
            .packets = packets.highest() + 1,
            .packets_expected = youngest->geometry.expected_packets,
            .under_way = youngest->state == block_state::open && packets.trailer() == 0,
            .patience = params.resend_enabled ? resend_delay() : std::numeric_limits<int64_t>::max()};
}

void gvsp_recv_resend::prepare_blocks() {
    for (block& each : blocks) {
        each.state = block_state::free;
        each.context = {};
        each.packets.reserve(geometry[1].expected_packets); // the smaller payload of extended ids needs more
    }
    open_count = 0;
    last_look = 0;
    youngest = nullptr;
    ids.restart();
    ended_recently.clear();
    frame_time.restart();
}

void gvsp_recv_resend::reset() {
    flush(0);
    time_base = 0;
    prepare_blocks();
}

void gvsp_recv_resend::flush(uint64_t now) {
    const int64_t t = relative(now);
    for (size_t i = 0; i < open_count; ++i) {
        block& open = *open_blocks[i];
        if (open.state != block_state::free) end_block(t, open, true);
        open.block_id = open.frame_id = 0;
    }
    open_count = 0;
}

bool gvsp_recv_resend::revoke_frame(const void* buffer) {
    if (buffer == nullptr) return false;
    const auto found =
        std::ranges::find_if(blocks, [&](const block& candidate) { return candidate.context.buffer == buffer; });
    if (found == blocks.end()) return false;
    found->context = {};
    return true;
}

gvsp_recv_resend::block* gvsp_recv_resend::find(uint64_t block_id) noexcept {
    for (block* const each : std::span{open_blocks}.first(open_count)) {
        if (each->block_id == block_id) return each;
    }
    return nullptr;
}

inline int64_t gvsp_recv_resend::end_timeout(int64_t t, const block& current) const noexcept {
    if (current.packets.count() < 4 || current.highest_packet_id == 0) return frame_time();
    const int64_t floor = params.resend_enabled ? frame_time() : 2 * frame_time();
    // The projected length of the whole frame, so that a slow camera's tail isn't declared lost too soon.
    const int64_t per_packet = std::min((t - current.start_time) / current.highest_packet_id, longest_per_packet);
    return std::max(floor, per_packet * current.geometry.expected_packets - 2);
}

// For others than the way of nearly every datagram, which has it inlined.
void gvsp_recv_resend::postpone_end(int64_t t, block& current) const noexcept {
    current.end_deadline = t + end_timeout(t, current);
    current.next_timer = std::min(current.next_timer, current.end_deadline);
}

// True when the packet is the highest so far.
inline bool gvsp_recv_resend::came_forward(int64_t t, block& current, uint32_t packet_id) noexcept {
    if (packet_id < current.highest_packet_id) return false;
    current.highest_packet_id = packet_id;
    if (current.end_deadline != never) {
        current.end_deadline = t + end_timeout(t, current);
        current.next_timer = std::min(current.next_timer, current.end_deadline);
    }
    return true;
}

// The first packet behind a gap notices it; what arrives behind an open range later is no new highest packet. Below the
// highest one before it gaps have been noticed already. That one itself may be missing: it was too short.
inline void gvsp_recv_resend::check_gap(int64_t t, block& current, uint32_t packet_id, uint32_t highest_before) {
    if (!params.resend_enabled || packet_id == 0) return;
    const uint32_t last = std::min(packet_id, current.geometry.expected_packets) - 1;
    if (current.packets.is_missing(last)) ask_for_gap(t, current, highest_before, last);
}

void gvsp_recv_resend::ask_for_gap(int64_t t, block& current, uint32_t lowest, uint32_t last) {
    const int64_t deadline =
        add_resend_entry(t, current, resend_delay(), current.packets.start_of_missing_run(last, lowest), last);
    current.next_timer = std::min(current.next_timer, deadline);
    if (last + 1 != current.packets.trailer()) receive_out_of_turn(t, current, last + 1);
}

// The way of nearly every datagram: inlined, it costs a twentieth less than called.
[[gnu::always_inline]] inline void gvsp_recv_resend::receive_payload(int64_t t, block& current,
                                                                     const gvsp_parsed_packet& packet) {
    const uint32_t id = packet.packet_id;
    const packet_share share = share_of(current.geometry, payload_size, id, packet.payload.data_size);
    const bool forward = current.packets.add_payload(id, share, packet.payload.data_size);
    if (!forward && current.packets.holds(id)) return receive_repeat(t, current, packet);
    const placed_bytes placed = place_payload(current.context, current.geometry, id, packet.payload);
    current.received_bytes += placed.count;
    current.filled_size = std::max(current.filled_size, placed.end);
    const uint32_t highest_before = current.highest_packet_id;
    if (!forward) return;
    if (came_forward(t, current, id)) {
        check_gap(t, current, id, highest_before);
    } else {
        receive_out_of_turn(t, current, id);
    }
}

// Where the frame that had the id in the round before lacked it, whose answer it is cannot be told. It may well be this
// frame's own, so that is assembled on.
[[gnu::noinline]] void gvsp_recv_resend::receive_out_of_turn(int64_t t, block& current, uint32_t packet_id) noexcept {
    if (ended_recently.may_be_old_answer(current.block_id, packet_id, static_cast<uint64_t>(t))) {
        current.packets.mark_mixed();
    }
}

// What came first stays. Where it is not the same the camera started over, and its leader is lost or late.
[[gnu::noinline, gnu::cold]] void gvsp_recv_resend::receive_repeat(int64_t t, block& current,
                                                                   const gvsp_parsed_packet& packet) {
    if (!current.brings_the_same(packet.packet_id, packet.payload, payload_size)) {
        give_up_mixed(t, current, packet.packet_id);
    }
}

// Which packets are of which frame cannot be told, and answers would be mixed just so.
void gvsp_recv_resend::give_up_mixed(int64_t t, block& current, uint32_t packet_id) {
    if (current.packets.is_mixed() && current.state == block_state::end_pending) return;
    log_block(t, current, ". pckt={} is of another frame with this id, so mark block with end-pending.", packet_id);
    current.packets.mark_mixed();
    current.state = block_state::end_pending;
}

bool gvsp_recv_resend::receive_packet(uint64_t now, std::span<const std::byte> datagram) {
    if (time_base == 0) time_base = now;
    const int64_t t = relative(now);
    const gvsp_parsed_packet packet = parse_gvsp_packet(datagram.data(), datagram.size());
    const bool traced = gvsp_logger().should_log(spdlog::level::trace);
    if (packet.kind == gvsp_packet_kind::invalid) {
        unsupported.look_at(packet);
        if (traced) {
            gvsp_logger().trace("now={:15} invalid packet received with err={}", t,
                                packet.error_text != nullptr ? packet.error_text : "");
        }
        return false;
    }
    if (traced) {
        gvsp_logger().trace("now={:15} recv: block={:6},id={:4},fmt={},status={:x}", t, packet.block_id,
                            packet.packet_id, static_cast<uint32_t>(packet.kind), packet.status);
    }
    block* current = find(packet.block_id);
    if (packet.kind == gvsp_packet_kind::status_only) {
        if (current != nullptr) recv_block_error(t, *current, packet.packet_id, packet.status);
        return true;
    }
    extended = packet.is_extended;
    const bool is_leader = packet.kind == gvsp_packet_kind::leader;
    if (is_leader || current == nullptr) {
        current = block_of(t, packet, current);
        if (current == nullptr) return true;
    }
    current->last_packet = t;
    if (packet.kind == gvsp_packet_kind::payload) {
        receive_payload(t, *current, packet);
    } else {
        receive_other(t, *current, packet);
    }
    return true;
}

// The block that this packet belongs to, whose id `found` has; one is opened if need be. Null: the packet is late.
gvsp_recv_resend::block* gvsp_recv_resend::block_of(int64_t t, const gvsp_parsed_packet& packet, block* found) {
    const uint64_t* leader_timestamp = packet.kind == gvsp_packet_kind::leader ? &packet.leader.timestamp : nullptr;
    if (found != nullptr && leader_timestamp != nullptr) {
        if (ended_recently.is_old_leader(packet.block_id, *leader_timestamp, static_cast<uint64_t>(t))) {
            ++stats.packets_late;
            return nullptr;
        }
        // It was delivered, and is asked for anew where it counts as lost.
        if (ended_recently.is_leader_of_delivered(packet.block_id, *leader_timestamp)) {
            ++stats.packets_late;
            if (found->recovered) discard_repeat(t, *found, packet.leader);
            return nullptr;
        }
        if (begins_another_round(t, *found, *leader_timestamp)) {
            restart_stream(t);
            found = nullptr;
        }
    }
    return found != nullptr ? found : create_block_for_id(t, packet, leader_timestamp);
}

void gvsp_recv_resend::receive_other(int64_t t, block& current, const gvsp_parsed_packet& packet) {
    const uint32_t id = packet.packet_id;
    const uint32_t highest_before = current.highest_packet_id;
    switch (packet.kind) {
    case gvsp_packet_kind::leader:
        if (current.packets.add(id)) came_forward(t, current, id);
        last_leader = current.leader = packet.leader;
        ended_recently.leader_came(packet.leader.timestamp);
        break;
    case gvsp_packet_kind::trailer: {
        const uint32_t trailer_before = current.packets.trailer();
        const bool forward = current.packets.add_trailer(id);
        if (trailer_before != 0 && current.packets.trailer() != trailer_before) give_up_mixed(t, current, id);
        if (!forward) break;
        if (const uint32_t length = packet.trailer.chunk_data_payload_length) current.chunk_length = length;
        current.chunk_layout_id = packet.trailer.chunk_layout_id;
        if (came_forward(t, current, id)) check_gap(t, current, id, highest_before);
        break;
    }
    default:
        if (current.packets.add(id)) came_forward(t, current, id);
        break;
    }
}

int64_t gvsp_recv_resend::add_resend_entry(int64_t t, block& current, int64_t delay, uint32_t first, uint32_t last) {
    if (last > last_requestable_packet) return never;
    for (size_t i = 0; i < current.resend_entry_count; ++i) {
        const resend_entry& entry = current.resend_entries[i];
        if (entry.deadline != 0 && entry.first_packet <= first && last <= entry.last_packet) return never;
    }
    // Slots aren't reclaimed: they are the budget of a block, which bounds the traffic that one bad frame causes.
    if (current.resend_entry_count == max_entries) {
        log_block(t, current, ". Failed to queue resend request for range [{},{}] due to too few slots.", first, last);
        return never;
    }
    resend_entry& entry = current.resend_entries[current.resend_entry_count++];
    entry.deadline = std::max<int64_t>(t + delay, 1);
    entry.first_packet = first;
    entry.last_packet = last & last_requestable_packet;
    entry.retry_count = 0;
    return delay == 0 ? queue_resend(t, current, entry) : entry.deadline;
}

int64_t gvsp_recv_resend::queue_resend(int64_t t, block& current, resend_entry& entry) {
    const uint32_t last = entry.last_packet;
    const uint32_t sent = entry.retry_count;
    log_block(t, current, ". Sending resend-request for range [{},{}], sent-count#={}.", entry.first_packet, last,
              sent);
    current.resend_packets_requested += last - entry.first_packet + 1;
    ++current.resend_requests;
    current.asked.include(entry.first_packet, last);
    try {
        if (functions.send_resend) functions.send_resend(current.block_id, entry.first_packet, last, extended);
    } catch (const std::bad_alloc&) {
        // Lost like one on the wire; the next try is due as if it had gone.
    }
    entry.retry_count = std::min(sent + 1, most_sends) & most_sends;
    entry.deadline = std::max<int64_t>(t + resend_delay(), 1);
    return entry.deadline;
}

int64_t gvsp_recv_resend::update_resend_entry(int64_t t, block& current, resend_entry& entry) {
    if (entry.deadline == 0) return never;
    if (t < entry.deadline) return entry.deadline;
    const uint32_t first = entry.first_packet;
    const uint32_t last = entry.last_packet;
    const auto missing = static_cast<uint32_t>(current.packets.first_missing(first, last));
    const bool any_missing = missing <= last;
    if (entry.retry_count < std::min(params.max_retries, most_sends)) {
        if (any_missing) {
            if (missing > first) {
                if (entry.retry_count != 0) {
                    log_block(t, current, ". Reduced run from [{},{}] to [{},{}].", first, last, missing, last);
                }
                entry.first_packet = missing;
            }
            return queue_resend(t, current, entry);
        }
        if (entry.retry_count != 0) {
            log_block(t, current, ". Missing packets for run [{},{}] completed.", first, last);
        }
    } else if (any_missing) {
        log_block(t, current, ". Too many retries for range [{},{}], ending resends for this range.", first, last);
    }
    entry.deadline = 0;
    return never;
}

void gvsp_recv_resend::run_timers(int64_t t, block& current) {
    current.next_timer = never;
    size_t end = current.resend_entry_count;
    for (size_t i = 0; i < end;) {
        resend_entry& entry = current.resend_entries[i];
        const bool was_active = entry.deadline != 0;
        current.next_timer = std::min(current.next_timer, update_resend_entry(t, current, entry));
        if (was_active && entry.deadline == 0) {
            std::swap(entry, current.resend_entries[--end]);
        } else {
            ++i;
        }
    }
    int64_t deadline = current.end_deadline;
    if (t >= current.end_deadline) {
        deadline = current.end_deadline = never;
        const uint32_t last = current.geometry.expected_packets - 1;
        if (current.packets.trailer() == 0 && params.resend_enabled && current.packets.is_missing(last)) {
            deadline = add_resend_entry(t, current, 0, current.packets.start_of_missing_run(last, 0), last);
        }
    }
    current.next_timer = std::min(current.next_timer, deadline);
}

int64_t gvsp_recv_resend::check_timers(uint64_t now) {
    const int64_t t = relative(now);
    last_look = t;
    int64_t wait = never;
    for (block* const each : std::span{open_blocks}.first(open_count)) {
        block& current = *each;
        if (current.state != block_state::open) continue;
        if (current.packets.complete()) {
            stats.skipped_frames += ids.completed(current.frame_id);
            current.state = block_state::end_pending;
            continue;
        }
        if (t >= current.next_timer) run_timers(t, current);
        if (current.next_timer == never) {
            log_block(t, current, ". No more pending timers, so mark block with end-pedning.");
            current.state = block_state::end_pending;
            continue;
        }
        wait = std::min(wait, current.next_timer);
    }
    // A finished younger frame waits behind an older one that is still being repaired.
    while (open_count > 0 && open_blocks[open_count - 1]->state == block_state::end_pending) {
        end_block(t, *open_blocks[--open_count], false);
    }
    return wait == never ? -1 : wait - t;
}

bool gvsp_recv_resend::begins_another_round(int64_t t, const block& current, uint64_t leader_timestamp) const noexcept {
    // A block for a lost frame, still empty and back-dated, is filled by whatever frame has its id.
    if (current.packets.count() == 0) return false;
    const auto last_packet = static_cast<uint64_t>(current.last_packet);
    uint64_t quiet = ended_frames::elapsed(static_cast<uint64_t>(t), last_packet);
    if (!current.packets.holds(0) && quiet < ended_frames::longest_answer) {
        // It was asked for and this thread was away: the frame's own.
        if (current.asked.holds(0)) return false;
        // While this thread is away it cannot ask, and the frame does not end.
        quiet = ended_frames::elapsed(static_cast<uint64_t>(last_look), last_packet);
    }
    return ended_recently.begins_another(current.leader_mark(), quiet, leader_timestamp,
                                         static_cast<uint64_t>(frame_time()));
}

void gvsp_recv_resend::discard_repeat(int64_t t, block& repeat, const frame_block::leader_body& leader) {
    log_block(t, repeat, ". Discarding frame that was delivered before.");
    const auto open = std::span{open_blocks}.first(open_count);
    std::ranges::remove(open, &repeat);
    --open_count;
    repeat.leader = leader;
    repeat.packets.add(0);
    repeat.packets.mark_mixed(); // whole or not, it counts for no second whole frame
    end_block(t, repeat, true);
}

void gvsp_recv_resend::restart_stream(int64_t t) {
    gvsp_logger().info("now={:15} The camera started over, with {} frames open.", t, open_count);
    while (open_count > 0) end_block(t, *open_blocks[--open_count], false);
    ids.restart();
    ended_recently.start_over(static_cast<uint64_t>(t));
}

gvsp_recv_resend::block* gvsp_recv_resend::create_block_for_id(int64_t t, const gvsp_parsed_packet& packet,
                                                               const uint64_t* leader_timestamp) {
    const uint64_t block_id = packet.block_id;
    switch (ended_recently.judge(block_id, packet.packet_id, leader_timestamp, static_cast<uint64_t>(t),
                                 static_cast<uint64_t>(frame_time()))) {
    case ended_frames::verdict::late:
        ++stats.packets_late;
        return nullptr;
    case ended_frames::verdict::restart:
        restart_stream(t);
        break;
    case ended_frames::verdict::unknown:
        break;
    }
    if (leader_timestamp != nullptr && ids.is_old_first(block_id, extended)) restart_stream(t);
    const uint64_t recoverable = std::clamp<uint64_t>(params.max_open_blocks, 1, pool_size) - 1;
    const bool joined = !ids.started();
    const frame_ids::opened_frame opened = ids.opened(block_id, extended, recoverable);
    stats.skipped_frames += opened.lost;
    frame_time.frame_began(t, opened.follows);
    // Who joins a stream in the middle has lost nothing. Only its very first frames can have gone by unseen.
    uint64_t skipped = joined && opened.id <= recoverable ? opened.id : opened.skipped;
    if (skipped > 0) gvsp_logger().info("[{:8}] !!!! we skipped {} frames, trying to recover ...", block_id, skipped);
    skipped = std::min(skipped, recoverable);
    if (!extended || block_id > skipped) {
        for (uint64_t back = skipped; back > 0; --back) {
            const uint64_t lost_id = block_id > back ? block_id - back : block_id + ids_per_lap - back;
            // After a wrong id far ahead frames seem lost that were here a moment ago.
            if (ended_recently.holds(lost_id) || find(lost_id) != nullptr) continue;
            block* const recovered =
                create_single_new_block(t - static_cast<int64_t>(back) * frame_time(), lost_id, opened.id - back);
            if (recovered != nullptr) recovered->recovered = true;
        }
    }
    block* const created = create_single_new_block(t, block_id, opened.id);
    if (created != nullptr) {
        youngest = created;
        ++frames_begun;
    }
    return created;
}

gvsp_recv_resend::block* gvsp_recv_resend::create_single_new_block(int64_t t, uint64_t block_id, uint64_t frame_id) {
    while (open_count > 0 && open_count >= params.max_open_blocks) {
        block& oldest = *open_blocks[--open_count];
        if (oldest.state == block_state::free) continue;
        log_block(t, oldest, ". Killing block due to too many open blocks.");
        end_block(t, oldest, false);
    }
    const auto free_block = std::ranges::find(blocks, block_state::free, &block::state);
    if (free_block == blocks.end()) return nullptr;
    block& created = *free_block;
    std::copy_backward(open_blocks.begin(), open_blocks.begin() + open_count, open_blocks.begin() + open_count + 1);
    open_blocks[0] = &created;
    ++open_count;

    created.context = functions.get_frame();
    created.begin(block_id, frame_id, t, last_leader, geometry[extended]);
    created.state = block_state::open;
    created.ended = created.recovered = false;
    created.end_deadline = created.next_timer = t + frame_time();
    created.highest_packet_id = created.not_yet_available = 0;
    created.resend_requests = created.resend_packets_requested = 0;
    created.asked = {};
    created.received_bytes = 0;
    created.resend_entry_count = 0;
    log_block(t, created, ". Block started.");
    return &created;
}

void gvsp_recv_resend::end_block(int64_t t, block& ended, bool flushed) {
    ended.state = block_state::free;
    const bool complete = ended.packets.complete();
    if (!flushed) {
        stats.packets_expected += ended.packets.due();
        stats.packets_received += std::min(ended.packets.count(), ended.packets.due());
    }
    // Without a buffer, too: its late packets must not take one when buffers are scarcest.
    ended_recently.add(
        ended.block_id, ended.leader_mark(), static_cast<uint64_t>(std::max<int64_t>(t, 0)),
        {ended.asked, ended.resend_requests != 0 && !complete ? ended.lacking() : ended_frames::packet_span{}},
        complete && !flushed && ended.context.size != 0);
    if (ended.context.size == 0) {
        ++stats.no_buffer_frames;
        log_block(t, ended, ". Dropped frame due to no shm_mem_handle.");
        if (ended.context.buffer == nullptr) return; // an empty buffer goes back to its owner all the same
    } else {
        ++(complete ? stats.complete_frames : stats.incomplete_frames);
        stats.resend_requests += ended.resend_requests;
        stats.resend_packets_requested += ended.resend_packets_requested;
        if (complete) {
            log_block(t, ended, ". Delivering complete frame, resend-packets-sent={}.", ended.resend_packets_requested);
        } else {
            const uint64_t expected =
                ended.packets.trailer() != 0 ? uint64_t{ended.packets.trailer()} + 1 : ended.geometry.expected_packets;
            log_block(t, ended, ". Delivering __INCOMPLETE__ frame, packets-received={}/{}, resend-packets-sent={}.",
                      ended.packets.count(), expected, ended.resend_packets_requested);
        }
    }
    const auto absolute = [&](int64_t time) { return time_base + static_cast<uint64_t>(time); };
    frame_info info = ended.take_info(payload_size, {complete, extended, flushed});
    info.received_bytes = ended.received_bytes;
    info.start_time = absolute(ended.start_time);
    info.end_time = absolute(std::max(t, ended.start_time));
    info.resend_packets_requested = ended.resend_packets_requested;
    finish_copies();
    functions.deliver(info, stats);
    ended.ended = true;
}

} // namespace gev::streamchannel::impl
