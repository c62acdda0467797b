// Where a stream lost its packets: what was counted in a time, and what that means.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace cli {

// Differences over the time of the stream, unless it says otherwise. What nobody could read is nothing.
struct loss_evidence {
    double seconds = 0;
    // As the consumer and the library saw it; beside another consumer nobody tells.
    bool frames_known = true;
    uint64_t frames_complete = 0, frames_incomplete = 0, frames_lost = 0;
    uint64_t underruns = 0; // frames that found no free buffer
    uint64_t payload_size = 0, packet_size = 0;
    uint64_t buffers = 0;
    std::optional<uint64_t> packets_expected, packets_received; // of frames that ended
    std::optional<uint64_t> packets_asked_again, packets_late;  // late: when their frame had ended
    // This host's end of the stream.
    std::optional<uint64_t> socket_drops;
    std::optional<uint64_t> socket_buffer;       // bytes in force
    std::optional<uint64_t> socket_buffer_limit; // bytes, net.core.rmem_max
    std::optional<double> thread_waited;         // seconds that the receive thread waited for a processor
    std::optional<double> thread_ran;            // seconds that it had one
    std::optional<uint64_t> host_queue_drops, host_queue_squeezed; // of all interfaces
    // The card, or what stands for one.
    std::string interface;
    std::optional<uint64_t> mtu; // bytes, as it is
    std::vector<std::pair<std::string, uint64_t>> card_drops;
    std::optional<uint64_t> ring_size, ring_limit; // receive descriptors, as they are
    // Where no whole frame came: the largest test packet that did when asked for, 0 for none.
    std::optional<uint64_t> largest_that_passes;
};

enum class loss_cause {
    nothing,        // no loss that anything tells of
    socket_buffer,  // too small for the pauses of this host
    receive_thread, // had no processor, or not enough of one
    consumer,       // held its buffers for too long
    path_mtu,       // something between cannot carry packets of this size
    card,           // received and dropped by the card
    host_queue,     // dropped between card and socket
    network,        // never came to this host: camera, cable, switch
    no_packets,     // nothing came, for no reason that can be seen from here
};

struct loss_verdict {
    loss_cause cause = loss_cause::nothing;
    std::string sentence; // what happened, with the figures that tell
    std::string remedy;   // a command, or what to do; empty when nothing is wrong
};

[[nodiscard]] const char* name_of(loss_cause cause) noexcept; // in JSON

[[nodiscard]] loss_verdict judge(const loss_evidence& seen);
// What was counted, a line each: for people.
[[nodiscard]] std::string evidence_text(const loss_evidence& seen);

} // namespace cli
