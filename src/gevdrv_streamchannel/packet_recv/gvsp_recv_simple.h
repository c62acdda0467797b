// Assembles frames from what arrives and never asks for a resend.
#pragma once

#include "ended_frames.h"
#include "frame_block.h"
#include "frame_ids.h"
#include "frame_time.h"
#include "gvsp_recv_interface.h"
#include "unsupported_frames.h"

#include <array>

namespace gev::streamchannel::impl {

class gvsp_recv_simple final : public gvsp_recv_interface {
public:
    explicit gvsp_recv_simple(const stream_functions& stream);

    void setup(uint32_t packet_size, uint32_t payload_size) override;
    [[nodiscard]] frame_receive_stats get_statistics() const override { return stats; }
    [[nodiscard]] frame_progress progress() const override;
    bool revoke_frame(const void* buffer) override;
    void flush(uint64_t now) override;
    bool receive_packet(uint64_t now, std::span<const std::byte> datagram) override;
    int64_t check_timers(uint64_t now) override;
    // Only the frame time is of use here; get_resend_params stays empty.
    void set_resend_params(const resend_parameters& parameters) override { frame_time.set(parameters); }

private:
    struct block : frame_block {
        bool active = false;
    };

    [[nodiscard]] block* find(uint64_t block_id) noexcept;
    [[nodiscard]] bool is_of_another(const block& current, const gvsp_parsed_packet& packet,
                                     uint64_t now) const noexcept;
    void restart_stream(uint64_t now);
    void end_up_to(const block& last, uint64_t now);
    block& create_new_block(uint64_t now, uint64_t block_id);
    void end_block(block& ended, uint64_t now, bool flushed);

    const stream_functions& functions;
    std::array<block, 4> blocks;
    std::array<block*, 4> ring{}; // newest first
    frame_block::leader_body last_leader{};
    frame_ids ids;
    unsupported_frames unsupported;
    ended_frames ended_recently;
    impl::frame_time frame_time;
    frame_receive_stats stats;
    uint64_t frames_begun = 0;
    std::array<block_geometry, 2> geometry; // by extended ids
    uint32_t payload_size = 0;
    bool extended = false; // of the last packet
};

} // namespace gev::streamchannel::impl
