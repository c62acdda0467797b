// What the consumer supplies: too few buffers, too late, too small, or made for another picture. Counters and flags
// must tell which.
#include "support/frame_reader.h"
#include "support/test_system.h"

#include <gtest/gtest.h>

#include <thread>

using namespace test_support;
using namespace GenTL;
using namespace std::chrono_literals;

namespace {

class Supply : public testing::Test {
protected:
    Supply() {
        own.start_camera({"--width", "640", "--height", "480", "--frame-rate", "40"});
        own.start_service();
        camera.emplace();
    }
    void set(const char* name, const std::string& value) { camera->set(name, value); }
    // Every frame that the camera sent was delivered or found no buffer, and the features say the same.
    static void expect_all_accounted(frame_reader& reader, uint64_t sent) {
        EXPECT_TRUE(eventually(
            [&] { return reader.info(STREAM_INFO_NUM_DELIVERED) + reader.info(STREAM_INFO_NUM_UNDERRUN) >= sent; }));
        EXPECT_EQ(reader.info(STREAM_INFO_NUM_DELIVERED) + reader.info(STREAM_INFO_NUM_UNDERRUN), sent);
        EXPECT_EQ(reader.info(STREAM_INFO_KRV_NUM_TRANSMISSION_DROP), 0U);
        auto& features = reader.features();
        EXPECT_EQ(static_cast<uint64_t>(cli::require_integer(features, "StreamDeliveredFrameCount")),
                  reader.info(STREAM_INFO_NUM_DELIVERED));
        EXPECT_EQ(static_cast<uint64_t>(cli::require_integer(features, "StreamLostFrameCount")),
                  reader.info(STREAM_INFO_NUM_UNDERRUN));
        EXPECT_EQ(cli::require_integer(features, "StreamPacketLossFrameCount"), 0);
    }

    test_system own;
    std::optional<open_camera> camera;
};

void expect_right(const std::optional<read_frame>& frame) {
    ASSERT_TRUE(frame);
    EXPECT_FALSE(frame->incomplete);
    EXPECT_EQ(frame->missing_packets + frame->foreign_packets, 0U);
}

} // namespace

TEST_F(Supply, OneBufferThatGoesRoundServes) {
    frame_reader reader{*camera, 2, false}; // the fewest that an acquisition starts with
    reader.allow_pauses();
    constexpr uint64_t sent = 20;
    reader.start(sent);
    expect_right(reader.next(5000, true)); // one is out for good
    uint64_t received = 1;
    while (reader.info(STREAM_INFO_NUM_DELIVERED) + reader.info(STREAM_INFO_NUM_UNDERRUN) < sent) {
        if (const auto frame = reader.next(5000)) {
            expect_right(frame);
            ++received;
        } else {
            break;
        }
    }
    while (reader.next(100)) ++received;
    EXPECT_GT(received, 2U);
    expect_all_accounted(reader, sent);
    EXPECT_EQ(received, reader.info(STREAM_INFO_NUM_DELIVERED));
    reader.stop();
}

TEST_F(Supply, ASingleBufferIsRefused) {
    frame_reader reader{*camera, 1, false};
    reader.allow_pauses();
    EXPECT_EQ(camera->lib->DSStartAcquisition(camera->stream->get(), 0, GENTL_INFINITE), GC_ERR_INVALID_BUFFER);
    EXPECT_NE(camera->lib->last_error(GC_ERR_INVALID_BUFFER).find("BUF_ANNOUNCE_MIN"), std::string::npos);
}

// One stream, one set of buffers, another picture for each acquisition.
TEST_F(Supply, ThePayloadSizeMayChangeBetweenAcquisitions) {
    constexpr size_t capacity = 640 * 480 * 2;
    frame_reader reader{*camera, 6, false, capacity};
    reader.allow_pauses();
    struct picture {
        const char* width;
        const char* height;
        const char* format;
        const char* chunks;
        size_t bytes;
    };
    for (const picture& each : {picture{"640", "480", "Mono8", "0", 640 * 480},
                                {"320", "240", "Mono8", "0", 320 * 240},
                                {"640", "480", "Mono12p", "0", 640 * 480 * 3 / 2},
                                {"640", "480", "RGB8", "0", 640 * 480 * 3}, // larger than the buffers
                                {"640", "480", "Mono8", "1", 640 * 480},
                                {"648", "481", "Mono8", "0", 648 * 481}}) {
        SCOPED_TRACE(testing::Message() << each.width << "x" << each.height << " " << each.format << " "
                                        << each.chunks);
        set("ChunkModeActive", each.chunks);
        set("Width", each.width);
        set("Height", each.height);
        set("PixelFormat", each.format);
        const bool chunks = *each.chunks == '1';
        const auto payload = static_cast<size_t>(camera->integer("PayloadSize"));
        EXPECT_EQ(reader.size_info(STREAM_INFO_PAYLOAD_SIZE), payload);
        EXPECT_EQ(payload > each.bytes, chunks);
        reader.start(4);
        for (uint64_t block = 1; block <= 4; ++block) {
            const auto frame = reader.next(5000);
            expect_right(frame);
            EXPECT_EQ(frame->block_id, block);
            EXPECT_EQ(std::to_string(frame->width), each.width);
            EXPECT_EQ(std::to_string(frame->height), each.height);
            EXPECT_EQ(frame->data_size, payload);
            EXPECT_EQ(frame->filled, std::min(payload, capacity));
            EXPECT_EQ(frame->too_large, payload > capacity);
            EXPECT_EQ(frame->has_chunks, chunks);
        }
        expect_all_accounted(reader, 4);
        reader.stop();
        EXPECT_TRUE(reader.margins_untouched());
    }
}
