// What a camera answers instead of a packet that it was asked for.
#include "block_log.h"
#include "gvsp_recv_resend.h"

#include <algorithm>
#include <span>

namespace gev::streamchannel::impl {

namespace {

constexpr uint32_t most_not_yet_available = 16; // answers heeded per frame

enum status : uint16_t {
    packet_unavailable = 0x800C,
    packet_not_yet_available = 0x8010,
    packet_and_prev_removed = 0x8011,
    packet_removed = 0x8012,
};

} // namespace

void gvsp_recv_resend::recv_block_error(int64_t t, block& current, uint32_t packet_id, uint16_t status) {
    switch (status) {
    case packet_unavailable:
    case packet_removed:
        kill_range(t, current, packet_id);
        break;
    case packet_not_yet_available:
        log_block(t, current, ". pckt={},  Received GEV_STATUS_PACKET_NOT_YET_AVAILABLE packet.", packet_id);
        wait_for_packet(t, current, packet_id);
        break;
    case packet_and_prev_removed:
        kill_ranges_up_to(t, current, packet_id);
        break;
    default:
        log_block(t, current, ". pckt={},  Received status=0x{:x} packet.", packet_id, status);
        break;
    }
}

void gvsp_recv_resend::kill_range(int64_t t, block& current, uint32_t packet_id) {
    if (current.ended) {
        log_block(t, current, ". pckt={}, Received 'GEV_STATUS_PACKET_UNAVAILABLE' on already ended block.", packet_id);
        return;
    }
    const bool for_old_frame = ended_recently.may_be_old_refusal(current.block_id, static_cast<uint64_t>(t));
    for (size_t i = 0; i < current.resend_entry_count; ++i) {
        resend_entry& entry = current.resend_entries[i];
        const uint32_t last = entry.last_packet;
        if (entry.deadline == 0 || packet_id < entry.first_packet || packet_id > last) continue;
        // Its packets may be on their way.
        if (entry.retry_count == 0 && for_old_frame) continue;
        log_block(t, current, ". pckt={}, Received 'GEV_STATUS_PACKET_UNAVAILABLE', killing resend request at [{},{}].",
                  packet_id, entry.first_packet, last);
        entry.deadline = 0;
        current.state = block_state::end_pending;
        return;
    }
}

void gvsp_recv_resend::kill_ranges_up_to(int64_t t, block& current, uint32_t packet_id) {
    if (current.ended) {
        log_block(t, current,
                  ". pckt={}, Received 'GEV_STATUS_PACKET_AND_PREV_REMOVED_FROM_MEMORY' on already ended block.",
                  packet_id);
        return;
    }
    // Nothing was asked for, so nothing is lost.
    if (current.resend_requests == 0 && ended_recently.may_be_old_refusal(current.block_id, static_cast<uint64_t>(t)))
        return;
    log_block(t, current,
              ". pckt={}, Received 'GEV_STATUS_PACKET_AND_PREV_REMOVED_FROM_MEMORY', killing all resend requests for "
              "previous packet-ids.",
              packet_id);
    for (size_t i = 0; i < current.resend_entry_count; ++i) {
        resend_entry& entry = current.resend_entries[i];
        if (entry.last_packet < packet_id) {
            entry.deadline = 0;
        } else if (entry.deadline != 0 && entry.first_packet <= packet_id) {
            entry.first_packet = packet_id;
        }
    }
    current.state = block_state::end_pending;
}

// Nothing is lost yet, as with a line scan or a long read-out: the request does not use up a try. Bounded, lest a
// camera that never says anything else holds the frame for ever.
void gvsp_recv_resend::wait_for_packet(int64_t t, block& current, uint32_t packet_id) {
    const auto entries = std::span{current.resend_entries}.first(current.resend_entry_count);
    const auto asked = std::ranges::find_if(entries, [&](const resend_entry& entry) {
        return entry.deadline != 0 && entry.retry_count != 0 && entry.first_packet <= packet_id &&
               packet_id <= entry.last_packet;
    });
    if (asked == entries.end() || current.not_yet_available == most_not_yet_available) return;
    ++current.not_yet_available;
    asked->retry_count = (asked->retry_count - 1U) & most_sends;
    const uint32_t last = asked->last_packet;
    if (current.packets.trailer() != 0 || last + 1 < current.geometry.expected_packets) return;
    postpone_end(t, current);
}

} // namespace gev::streamchannel::impl
