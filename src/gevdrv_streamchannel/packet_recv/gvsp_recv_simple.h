// Assembles frames from what arrives and never asks for a resend.
#pragma once

#include "gvsp_packet.h"
#include "gvsp_recv_interface.h"

#include <array>
#include <vector>

namespace gev::streamchannel::impl {

class gvsp_recv_simple final : public gvsp_recv_interface {
public:
    explicit gvsp_recv_simple(const stream_functions& stream);

    void setup(uint32_t packet_size, uint32_t payload_size) override;
    [[nodiscard]] frame_receive_stats get_statistics() const override { return stats; }
    bool revoke_frame(const void* buffer) override;
    void flush(uint64_t now) override;
    bool receive_packet(uint64_t now, std::span<const std::byte> datagram) override;
    int64_t check_timers(uint64_t now) override;

private:
    using leader_body = gvsp_parsed_packet::leader_body;

    struct block {
        leader_body leader{};
        uint64_t block_id = 0;
        uint64_t frame_id = 0;
        uint64_t start_time = 0;
        frame_context context;
        std::vector<uint32_t> received_bitmap; // one bit per expected packet
        uint32_t received_count = 0;
        block_geometry geometry;
        uint64_t filled_size = 0;
        uint32_t chunk_layout_id = 0;
        bool has_chunk = false;
        bool active = false;
    };

    [[nodiscard]] block* find(uint64_t block_id) noexcept;
    block& create_new_block(uint64_t now, uint64_t block_id, uint64_t frame_id);
    void end_block(block& ended, uint64_t now, bool flushed);
    static bool mark_received(block& current, uint32_t packet_id) noexcept;

    const stream_functions& functions;
    std::array<block, 4> blocks;
    std::array<block*, 4> ring{}; // newest first
    leader_body last_leader{};
    block_id_unwrapper unwrapper;
    frame_receive_stats stats;
    std::array<block_geometry, 2> geometry; // by extended ids
    uint32_t payload_size = 0;
    bool extended = false; // of the last packet
};

} // namespace gev::streamchannel::impl
