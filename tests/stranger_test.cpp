// Others send to the stream's port while a camera streams: noise, floods, and packets that look like the camera's.
#include "bench.h"
#include "frame_reader.h"

#include <gige/gvsp.h>
#include <gige/udp_socket.h>
#include <gige/wire.h>

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>

using bench::test_bench;
using namespace GenTL;

namespace {

constexpr uint64_t frames = 40;

class Strangers : public testing::TestWithParam<bool> {
protected:
    // Streams while `send` is called again and again with the stream's endpoint and the newest block id.
    template <class Send>
    void stream_beside(Send&& send) {
        const bool extended = GetParam();
        std::vector<std::string> options{"--width", "640", "--height", "480", "--frame-rate", "20"};
        if (extended) options.push_back("--extended-ids");
        own.start_camera(options);
        own.start_service();
        bench::open_camera camera{test_bench::serial(0)};
        bench::frame_reader reader{camera, 20, extended};
        reader.allow_pauses();
        reader.start(frames);
        const auto port = static_cast<uint16_t>(cli::require_integer(camera.remote(), "GevSCPHostPort"));
        const auto address = static_cast<uint32_t>(cli::require_integer(camera.remote(), "GevSCDA"));
        std::atomic<uint64_t> newest{0};
        std::atomic<bool> done{false};
        std::thread sender{[&] {
            while (!done) {
                send(gige::endpoint{address, port}, newest.load());
                std::this_thread::sleep_for(std::chrono::microseconds{200});
            }
        }};
        for (uint64_t block = 1; block <= frames; ++block) {
            const auto frame = reader.next(5000);
            if (!frame) {
                ADD_FAILURE() << "block " << block << " did not come";
                break;
            }
            newest = frame->block_id;
            EXPECT_EQ(frame->block_id, block);
            EXPECT_FALSE(frame->incomplete);
            EXPECT_EQ(frame->missing_packets + frame->foreign_packets, 0U) << "block " << block;
        }
        done = true;
        sender.join();
        reader.stop();
        EXPECT_TRUE(reader.margins_untouched());
        EXPECT_EQ(reader.info(STREAM_INFO_NUM_DELIVERED), frames);
        EXPECT_EQ(reader.info(STREAM_INFO_NUM_UNDERRUN), 0U);
        EXPECT_EQ(reader.info(STREAM_INFO_KRV_NUM_TRANSMISSION_DROP), 0U);
    }

    [[nodiscard]] gige::udp_socket socket_on(uint32_t last_byte) const {
        const auto camera = gige::parse_address(own.camera_address(0));
        auto opened = gige::udp_socket::open({(*camera & 0xFFFFFF00) | last_byte, 0});
        EXPECT_TRUE(opened);
        return std::move(*opened);
    }

    test_bench own;
    std::mt19937 random{7};
};

} // namespace

// From the camera's own address, as any program on the camera could, and from elsewhere.
TEST_P(Strangers, NoiseChangesNothing) {
    std::optional<gige::udp_socket> same;
    std::optional<gige::udp_socket> other;
    std::vector<std::byte> bytes(1500);
    stream_beside([&](gige::endpoint to, uint64_t) {
        if (!same) {
            same = socket_on(10);
            other = socket_on(99);
        }
        for (auto& each : bytes) each = static_cast<std::byte>(random());
        for (int i = 0; i < 8; ++i) {
            const size_t size = random() % bytes.size();
            // Status words that say "no stream packet of mine": chance must not make a valid packet of the noise.
            bytes[0] = std::byte{0xFF};
            static_cast<void>(same->send(to, std::span{bytes}.first(size)));
            static_cast<void>(other->send(to, std::span{bytes}.first(size)));
        }
    });
}

// Well-formed packets of the frames that are being sent, with other bytes, and of frames far ahead.
TEST_P(Strangers, AForgedStreamFromElsewhereChangesNothing) {
    std::optional<gige::udp_socket> other;
    std::vector<std::byte> bytes(1400, std::byte{0x5A});
    stream_beside([&](gige::endpoint to, uint64_t newest) {
        if (!other) other = socket_on(99);
        for (const uint64_t ahead : {1, 2, 50}) {
            for (const auto kind : {gige::gvsp::format::payload, gige::gvsp::format::trailer}) {
                const auto packet = static_cast<uint32_t>(1 + random() % 40);
                gige::gvsp::store_header(bytes.data(), {GetParam(), false, newest + ahead, packet, kind, {}});
                static_cast<void>(other->send(to, bytes));
            }
        }
    });
}

INSTANTIATE_TEST_SUITE_P(Ids, Strangers, testing::Bool(),
                         [](const auto& chosen) { return chosen.param ? "extended" : "standard"; });
