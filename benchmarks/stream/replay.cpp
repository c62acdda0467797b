// The product's path of a datagram without camera and clock: the same bytes give the same instructions each time.
#include "bench_stream.h"

#include <gevdrv_streamchannel/packet_recv/gvsp_recv_resend.h>
#include <gevdrv_streamchannel/posix/datagram_reader.h>
#include <gige/gvsp.h>

#include <algorithm>

namespace bench {

namespace {

using datagram_bytes = std::vector<std::byte>;

// Leader, payload packets and trailer of a standard-id frame.
std::vector<datagram_bytes> frame_datagrams(const stream_shape& shape) {
    std::vector<datagram_bytes> result;
    const auto add = [&](uint32_t id, gige::gvsp::format kind, size_t body) -> datagram_bytes& {
        auto& bytes = result.emplace_back(gige::gvsp::standard_header + body);
        gige::gvsp::store_header(bytes.data(), {false, false, 1, id, kind, {}});
        return bytes;
    };
    gige::store16(&add(0, gige::gvsp::format::leader, 36)[10], gige::gvsp::payload_type::image);
    uint32_t id = 1;
    for (uint32_t at = 0; at < shape.payload_size(); at += shape.payload_per_packet()) {
        add(id++, gige::gvsp::format::payload, std::min(shape.payload_per_packet(), shape.payload_size() - at));
    }
    gige::store16(&add(id, gige::gvsp::format::trailer, 8)[10], gige::gvsp::payload_type::image);
    return result;
}

} // namespace

void replay(uint64_t frames, const stream_shape& shape, bool read_only) {
    using namespace gev::streamchannel;
    constexpr size_t group = 16;
    auto receiving = gige::udp_socket::open({0x7F000001, 0});
    auto sending = gige::udp_socket::open({0x7F000001, 0});
    if (!receiving || !sending || receiving->set_receive_buffer(socket_buffer)) fail("no sockets");
    posix::datagram_reader reader{receiving->native(), group, shape.packet_size + 100, 100, shape.segmented};
    auto datagrams = frame_datagrams(shape);
    std::vector<std::byte> picture(shape.payload_size());
    uint64_t complete = 0;
    stream_functions functions;
    functions.get_frame = [&]() -> frame_context { return {&picture, picture.data(), picture.size()}; };
    functions.deliver = [&](const frame_info& info, const frame_receive_stats&) {
        if ((info.flags & frame_flags::incomplete) == 0) ++complete;
    };
    functions.send_resend = [](uint64_t, uint32_t, uint32_t, bool) {};
    impl::gvsp_recv_resend receiver{functions};
    receiver.setup(shape.packet_size, shape.payload_size());
    uint64_t now = 1'000'000;
    uint64_t seen = 0;
    uint64_t sent = 0;
    for (uint64_t frame = 1; frame <= frames; ++frame) {
        for (auto& each : datagrams) gige::store16(&each[2], static_cast<uint16_t>(1 + (frame - 1) % 65535));
        for (size_t at = 0; at < datagrams.size();) {
            std::array<gige::udp_socket::datagram, group> batch;
            const size_t count = std::min(group, datagrams.size() - at);
            for (size_t i = 0; i < count; ++i) batch[i].head = datagrams[at + i];
            const auto result = sending->send_batch(receiving->local(), std::span{batch}.first(count), shape.segmented);
            if (result.error) fail("the send failed");
            at += count;
            sent += count;
            for (std::error_code error; seen < sent;) {
                const size_t filled = reader.read(error);
                if (error) fail("the read failed");
                now += 10;
                reader.for_each(filled, [&](std::span<const std::byte> bytes) {
                    ++seen;
                    if (!read_only && receiver.receive_packet(now, bytes)) {
                        [[maybe_unused]] const auto wait = receiver.check_timers(now);
                    }
                });
            }
        }
    }
    if (!read_only && complete != frames) fail("frames were lost");
    std::printf("%llu datagrams\n", static_cast<unsigned long long>(seen));
}

} // namespace bench
