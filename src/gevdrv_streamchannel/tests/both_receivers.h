// The two receivers that assemble frames, by turns, on a clock of the test's own.
#pragma once

#include "resend_bench.h"

#include "gevdrv_streamchannel/packet_recv/gvsp_recv_simple.h"

namespace gev::streamchannel::test {

template <class Receiver>
struct receiver_bench : testing::Test, surroundings {
    Receiver receiver{functions};
    uint64_t now = 1'000'000;

    void begin(const shape& with) {
        start_over(with);
        receiver.setup(wire.packet_size(), wire.frame_size());
    }
    void feed_one(const datagram& data) { feed(receiver, now, data); }
    void send(uint64_t block, uint32_t packet) { feed_one(packet_of(block, packet, wire)); }
    void whole(uint64_t block, uint32_t lost = UINT32_MAX) {
        for (uint32_t packet = 0; packet <= wire.trailer(); ++packet) {
            if (packet != lost) send(block, packet);
        }
    }
    void pass(uint64_t microseconds) {
        for (const uint64_t end = now + microseconds; now < end; now += 1000) receiver.check_timers(now);
    }
};
using both_receivers = testing::Types<impl::gvsp_recv_resend, impl::gvsp_recv_simple>;
struct receiver_names {
    template <class Receiver>
    static std::string GetName(int) {
        return std::is_same_v<Receiver, impl::gvsp_recv_resend> ? "resend" : "simple";
    }
};

} // namespace gev::streamchannel::test
