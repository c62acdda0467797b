// A receiver turns datagrams into frames, and the records that cross its border.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <span>

namespace gev::streamchannel {

// Where a block's payload goes. A size of 0 means that no buffer was available.
struct frame_context {
    void* buffer = nullptr; // the consumer's buffer object
    std::byte* data = nullptr;
    uint64_t size = 0;
};

namespace frame_flags {
inline constexpr uint32_t incomplete = 1;
inline constexpr uint32_t extended_ids = 2;
inline constexpr uint32_t has_chunk = 4;
inline constexpr uint32_t flushed = 8; // to be discarded rather than delivered
} // namespace frame_flags

// An ended block.
struct frame_info {
    frame_context context;
    uint32_t size_x = 0; // from the leader, else from the last leader seen
    uint32_t size_y = 0;
    uint32_t pixel_format = 0;
    uint32_t padding_x = 0;             // bytes behind each line
    uint64_t expected_payload_size = 0; // the stream's, or what the frame has when it is longer
    uint64_t filled_size = 0;           // highest byte position written
    uint64_t received_bytes = 0;        // sum of all bytes copied; 0 from the simple receiver
    uint64_t frame_id = 0;              // the block id, unwrapped
    uint64_t block_id = 0;              // as on the wire
    uint64_t timestamp = 0;             // camera ticks; 0 when the leader was lost
    uint64_t start_time = 0;            // receiver's clock, microseconds
    uint64_t end_time = 0;
    uint32_t resend_packets_requested = 0;
    uint32_t flags = 0;
    uint32_t chunk_layout_id = 0;
    uint32_t chunk_length = 0; // what the trailer says of the payload's length; 0 without chunks
};

struct frame_receive_stats {
    uint64_t complete_frames = 0;
    uint64_t incomplete_frames = 0;
    uint64_t skipped_frames = 0; // whole frames of which no packet came
    uint64_t no_buffer_frames = 0;
    uint64_t resend_packets_requested = 0;
    uint64_t resend_requests = 0;
    // Of frames that ended by themselves, those without a buffer with them. A packet that came twice counts once.
    uint64_t packets_expected = 0;
    uint64_t packets_received = 0;
    uint64_t packets_late = 0; // whose frame had ended
};

struct resend_parameters {
    uint64_t time_per_frame = 33333;  // expected duration of a frame, microseconds; 0: automatic, 1 to 999 act as 1000
    uint32_t max_open_blocks = 3;     // in flight
    uint32_t max_retries = 3;         // sends of one range
    float resend_delay_factor = 0.5F; // share of time_per_frame before a first request and between repeats
    bool resend_enabled = true;
    bool auto_time_per_frame = false; // follows the frames that come; time_per_frame is its start and its upper limit
};

// Called on the receive thread; none may block.
struct stream_functions {
    std::function<void(const frame_info&, const frame_receive_stats&)> deliver;
    // Block id, first packet, last packet, extended ids. Empty: the device cannot resend.
    std::function<void(uint64_t, uint32_t, uint32_t, bool)> send_resend;
    std::function<frame_context()> get_frame;
};

// How far the youngest frame has come.
struct frame_progress {
    uint64_t serial = 0;           // counts frames begun; 0: none yet, or the receiver knows of none
    uint32_t packets = 0;          // up to the highest id that came, lost ones included
    uint32_t packets_expected = 0; // leader and trailer included
    bool under_way = false;        // its trailer has not come
    int64_t patience = std::numeric_limits<int64_t>::max(); // microseconds until a lost packet is asked for
};

namespace impl {

// Thread-bound: the receive thread's. Times are microseconds of the steady clock. Nothing allocates after setup.
class gvsp_recv_interface {
public:
    virtual ~gvsp_recv_interface() = default;
    // Before the first packet and after each change: sizes in bytes, the packet's with IP and UDP headers.
    virtual void setup(uint32_t packet_size, uint32_t payload_size) = 0;
    [[nodiscard]] virtual frame_receive_stats get_statistics() const = 0;
    [[nodiscard]] virtual frame_progress progress() const { return {}; }
    // Forgets the destination of the block that holds this buffer; true if one did.
    virtual bool revoke_frame(const void* buffer) = 0;
    // Ends all open blocks, flagged as flushed.
    virtual void flush(uint64_t now) = 0;
    virtual void reset() {}
    // The bytes behind the datagram must be readable, see parse_gvsp_packet. True: look at the timers.
    virtual bool receive_packet(uint64_t now, std::span<const std::byte> datagram) = 0;
    // Microseconds to the next timer, or -1.
    virtual int64_t check_timers(uint64_t now) = 0;
    virtual void set_resend_params(const resend_parameters&) {}
    [[nodiscard]] virtual std::optional<resend_parameters> get_resend_params() const { return std::nullopt; }
};

// Whole packets and their count for a stream of these sizes.
struct block_geometry {
    uint32_t payload_per_packet = 1;
    uint32_t expected_packets = 0; // leader and trailer included
    // All ids that a resend can name; no real stream comes near.
    static constexpr uint32_t most_packets = 0x1000000;

    static block_geometry of(uint32_t packet_size, uint32_t payload_size, bool extended) noexcept {
        const uint32_t overhead = extended ? 48 : 36; // IP 20, UDP 8, GVSP 20 or 8
        const uint32_t per_packet = packet_size > overhead ? packet_size - overhead : 1;
        const uint64_t packets = uint64_t{payload_size} / per_packet + (payload_size % per_packet != 0 ? 1 : 0) + 2;
        return {per_packet, static_cast<uint32_t>(std::min<uint64_t>(packets, most_packets))};
    }
};

// 16-bit ids run from 1 to 65535. Around the wrap, the top 255 and the bottom 1023 ids are its two sides, so that late
// packets of the old lap keep their old base.
class block_id_unwrapper {
public:
    void reset() noexcept { *this = {}; }
    [[nodiscard]] uint64_t unwrap(uint64_t block_id, bool extended) noexcept {
        constexpr uint64_t ids_per_lap = 65535;
        if (extended) return block_id - 1;
        if (block_id >= 65281) {
            if (next_wrap_base == wrap_base) next_wrap_base += ids_per_lap;
            return block_id - 1 + wrap_base;
        }
        if (block_id >= 1024) {
            wrap_base = next_wrap_base;
            return block_id - 1 + wrap_base;
        }
        return block_id - 1 + next_wrap_base;
    }

private:
    uint64_t next_wrap_base = 0;
    uint64_t wrap_base = 0;
};

} // namespace impl

} // namespace gev::streamchannel
