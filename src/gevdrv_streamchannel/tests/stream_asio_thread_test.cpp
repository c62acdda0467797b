#include "datagrams.h"

#include "gevdrv_streamchannel/stream_asio_thread.h"

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/socket.h>

#include <future>

namespace gev::streamchannel::impl {
namespace {

using namespace test;

TEST(stream_asio_thread, receives_coalesced_datagrams_one_by_one_and_stops) {
    surroundings around;
    std::promise<void> first;
    const auto keep = around.functions.deliver;
    around.functions.deliver = [&](const frame_info& info, const frame_receive_stats& stats) {
        keep(info, stats);
        if (around.frames.size() == 1) first.set_value();
    };
    stream_asio_thread thread{{.copy_packets = false, .functions = around.functions}};
    asio::io_context io;
    asio::ip::udp::socket camera{io, {asio::ip::address_v4::loopback(), 0}};
    const auto local = thread.open_stream_socket(asio::ip::address_v4::loopback(), camera.local_endpoint());
    ASSERT_TRUE(local);
    ASSERT_FALSE(thread.start(packet_size, frame_size));

    camera.connect(*local);
    camera.send(asio::buffer(packet_of(1, 0)));
    datagram joined;
    for (uint32_t packet = 1; packet <= data_packets; ++packet) {
        const datagram one = packet_of(1, packet);
        joined.insert(joined.end(), one.begin(), one.end());
    }
    const int segment = payload_per_packet + 8;
    ASSERT_EQ(::setsockopt(camera.native_handle(), IPPROTO_UDP, UDP_SEGMENT, &segment, sizeof segment), 0);
    camera.send(asio::buffer(joined));
    camera.send(asio::buffer(packet_of(1, trailer_id)));
    ASSERT_EQ(first.get_future().wait_for(std::chrono::seconds{20}), std::future_status::ready);

    const auto parameters = thread.get_resend_params();
    ASSERT_TRUE(parameters && *parameters);
    EXPECT_EQ((*parameters)->max_retries, 3U);
    thread.flush();
    thread.stop();
    EXPECT_TRUE(around.bytes_right(0));
    EXPECT_EQ(around.frames[0].flags, 0U);
    EXPECT_EQ(around.frames.size(), around.taken);
    thread.flush(); // none of these waits for a thread that is gone
    EXPECT_FALSE(thread.get_resend_params());
    thread.stop();
}

} // namespace
} // namespace gev::streamchannel::impl
