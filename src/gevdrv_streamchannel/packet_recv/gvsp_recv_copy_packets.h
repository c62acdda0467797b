// Capture of whole datagrams: each as a 32-bit length and its bytes, a zero length behind the last.
#pragma once

#include "gvsp_recv_interface.h"

namespace gev::streamchannel::impl {

class gvsp_recv_copy_packets final : public gvsp_recv_interface {
public:
    explicit gvsp_recv_copy_packets(const stream_functions& stream) : functions(stream) {}

    void setup(uint32_t packet_size, uint32_t payload_size) override;
    [[nodiscard]] frame_receive_stats get_statistics() const override { return stats; }
    bool revoke_frame(const void* buffer) override;
    void flush(uint64_t now) override;
    bool receive_packet(uint64_t now, std::span<const std::byte> datagram) override;
    int64_t check_timers(uint64_t) override { return -1; }

private:
    void deliver(uint64_t now, uint32_t flags);

    const stream_functions& functions;
    frame_context context;
    uint64_t position = 0;
    uint64_t start_time = 0;
    uint64_t frames = 0;
    frame_receive_stats stats;
};

} // namespace gev::streamchannel::impl
