// Assembles frames, has lost packets sent again, and delivers in the order in which frames began.
#pragma once

#include "ended_frames.h"
#include "frame_block.h"
#include "frame_ids.h"
#include "frame_time.h"
#include "gvsp_recv_interface.h"
#include "unsupported_frames.h"

#include <array>
#include <limits>

namespace gev::streamchannel::impl {

class gvsp_recv_resend final : public gvsp_recv_interface {
public:
    explicit gvsp_recv_resend(const stream_functions& stream);

    void setup(uint32_t packet_size, uint32_t payload_size) override;
    [[nodiscard]] frame_receive_stats get_statistics() const override { return stats; }
    [[nodiscard]] frame_progress progress() const override;
    bool revoke_frame(const void* buffer) override;
    void flush(uint64_t now) override;
    void reset() override;
    bool receive_packet(uint64_t now, std::span<const std::byte> datagram) override;
    int64_t check_timers(uint64_t now) override;
    void set_resend_params(const resend_parameters& parameters) override;
    [[nodiscard]] std::optional<resend_parameters> get_resend_params() const override { return params; }

private:
    static constexpr int64_t never = std::numeric_limits<int64_t>::max();
    static constexpr size_t pool_size = 5;
    static constexpr size_t max_entries = 64;
    static constexpr uint32_t most_sends = 0xFF;

    enum class block_state : uint32_t { free = 0, open = 1, end_pending = 2 };

    struct resend_entry {
        int64_t deadline = 0; // 0: inactive
        uint32_t first_packet = 0;
        uint32_t last_packet : 24 = 0; // inclusive
        uint32_t retry_count : 8 = 0;  // sends so far
    };
    static_assert(sizeof(resend_entry) == 16);

    // Times are relative to the stream's first packet.
    struct block : frame_block {
        block_state state = block_state::free;
        bool ended = false;
        bool recovered = false;       // opened for a lost frame, by a younger one
        int64_t end_deadline = never; // when to suspect the tail of the frame
        int64_t next_timer = never;   // the earliest deadline
        uint32_t highest_packet_id = 0;
        uint32_t not_yet_available = 0; // answers of the kind that were heeded
        uint32_t resend_requests = 0;
        ended_frames::packet_span asked;
        uint32_t resend_packets_requested = 0;
        uint64_t received_bytes = 0;
        size_t resend_entry_count = 0; // slots used; never falls within a block
        std::array<resend_entry, max_entries> resend_entries;
    };

    [[nodiscard]] int64_t relative(uint64_t now) const noexcept;
    [[nodiscard]] int64_t resend_delay() const noexcept;
    [[nodiscard]] int64_t end_timeout(int64_t t, const block& current) const noexcept;
    void postpone_end(int64_t t, block& current) const noexcept;

    void prepare_blocks();
    [[nodiscard]] block* find(uint64_t block_id) noexcept;
    [[nodiscard]] bool begins_another_round(int64_t t, const block& current, uint64_t leader_timestamp) const noexcept;
    void discard_repeat(int64_t t, block& repeat, const frame_block::leader_body& leader);
    void restart_stream(int64_t t);
    block* create_block_for_id(int64_t t, const gvsp_parsed_packet& packet, const uint64_t* leader_timestamp);
    block* create_single_new_block(int64_t t, uint64_t block_id, uint64_t frame_id);
    void end_block(int64_t t, block& ended, bool flushed);

    block* block_of(int64_t t, const gvsp_parsed_packet& packet, block* found);
    void receive_payload(int64_t t, block& current, const gvsp_parsed_packet& packet);
    void receive_repeat(int64_t t, block& current, const gvsp_parsed_packet& packet);
    void receive_out_of_turn(int64_t t, block& current, uint32_t packet_id) noexcept;
    void give_up_mixed(int64_t t, block& current, uint32_t packet_id);
    void receive_other(int64_t t, block& current, const gvsp_parsed_packet& packet);
    bool came_forward(int64_t t, block& current, uint32_t packet_id) noexcept;
    void check_gap(int64_t t, block& current, uint32_t packet_id, uint32_t highest_before);
    void ask_for_gap(int64_t t, block& current, uint32_t lowest, uint32_t last);

    int64_t add_resend_entry(int64_t t, block& current, int64_t delay, uint32_t first, uint32_t last);
    int64_t queue_resend(int64_t t, block& current, resend_entry& entry);
    int64_t update_resend_entry(int64_t t, block& current, resend_entry& entry);
    void run_timers(int64_t t, block& current);

    void recv_block_error(int64_t t, block& current, uint32_t packet_id, uint16_t status);
    void kill_range(int64_t t, block& current, uint32_t packet_id);
    void kill_ranges_up_to(int64_t t, block& current, uint32_t packet_id);
    void wait_for_packet(int64_t t, block& current, uint32_t packet_id);

    const stream_functions& functions;
    resend_parameters params;
    std::array<block, pool_size> blocks;
    std::array<block*, pool_size> open_blocks{}; // newest first
    size_t open_count = 0;
    int64_t last_look = 0;           // time at which deadlines were last looked at
    const block* youngest = nullptr; // to begin by a packet of its own, ended or not
    uint64_t frames_begun = 0;
    ended_frames ended_recently;
    frame_block::leader_body last_leader{};
    frame_ids ids;
    unsupported_frames unsupported;
    frame_receive_stats stats;
    std::array<block_geometry, 2> geometry; // by extended ids
    uint32_t payload_size = 0;
    impl::frame_time frame_time;
    uint64_t time_base = 0; // time of the stream's first packet, 0 before it
    bool extended = false;
};

} // namespace gev::streamchannel::impl
