// What the consumer supplies: too few buffers, too late, too small, or made for another picture. Counters and flags
// must tell which.
#include "bench.h"
#include "frame_reader.h"

#include <gtest/gtest.h>

#include <thread>

using bench::test_bench;
using namespace GenTL;
using namespace std::chrono_literals;

namespace {

class Supply : public testing::Test {
protected:
    Supply() {
        own.start_camera({"--width", "640", "--height", "480", "--frame-rate", "40"});
        own.start_service();
        camera.emplace(test_bench::serial(0));
    }
    void set(const char* name, const std::string& value) {
        cli::set_from_text(cli::require_node(camera->remote(), name), value);
    }
    [[nodiscard]] static bool wait_until(const std::function<bool()>& condition) {
        for (int i = 0; i < 1000; ++i) {
            if (condition()) return true;
            std::this_thread::sleep_for(10ms);
        }
        return false;
    }
    // Every frame that the camera sent was delivered or found no buffer, and the features say the same.
    static void expect_all_accounted(bench::frame_reader& reader, uint64_t sent) {
        EXPECT_TRUE(wait_until(
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

    test_bench own;
    std::optional<bench::open_camera> camera;
};

void expect_right(const std::optional<bench::read_frame>& frame) {
    ASSERT_TRUE(frame);
    EXPECT_FALSE(frame->incomplete);
    EXPECT_EQ(frame->missing_packets + frame->foreign_packets, 0U);
}

} // namespace

TEST_F(Supply, AConsumerThatPausesLosesFramesAndThoseAlone) {
    bench::frame_reader reader{*camera, 5, false};
    reader.allow_pauses();
    constexpr uint64_t sent = 60;
    reader.start(sent);
    uint64_t last = 0;
    for (int i = 0; i < 5; ++i) {
        const auto frame = reader.next(5000, true);
        expect_right(frame);
        EXPECT_EQ(frame->block_id, ++last);
    }
    EXPECT_EQ(reader.size_info(STREAM_INFO_NUM_QUEUED), 0U);
    EXPECT_TRUE(wait_until([&] { return reader.info(STREAM_INFO_NUM_UNDERRUN) >= 10; }));
    EXPECT_FALSE(reader.next(0)) << "no buffer, no frame";
    reader.queue_kept();
    while (last < sent) {
        const auto frame = reader.next(5000);
        expect_right(frame);
        if (!frame) break;
        EXPECT_GT(frame->block_id, last);
        last = frame->block_id;
    }
    expect_all_accounted(reader, sent);
    reader.stop();
}

TEST_F(Supply, OneBufferThatGoesRoundServes) {
    bench::frame_reader reader{*camera, 2, false}; // the fewest that an acquisition starts with
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

// The stream stays open; the camera starts over with its first block id each time.
TEST_F(Supply, SingleFramesAreDeliveredOneAfterTheOther) {
    bench::frame_reader reader{*camera, 5, false};
    reader.allow_pauses();
    reader.start(1);
    uint64_t timestamp = 0;
    for (int i = 0; i < 5; ++i) {
        if (i != 0) cli::execute(cli::require_node(camera->remote(), "AcquisitionStart"));
        const auto frame = reader.next(5000);
        expect_right(frame);
        if (!frame) break;
        EXPECT_EQ(frame->block_id, 1U);
        EXPECT_GT(frame->timestamp, timestamp);
        timestamp = frame->timestamp;
    }
    expect_all_accounted(reader, 5);
    reader.stop();
}

TEST_F(Supply, ASingleBufferIsRefused) {
    bench::frame_reader reader{*camera, 1, false};
    reader.allow_pauses();
    EXPECT_EQ(camera->lib->DSStartAcquisition(camera->stream->get(), 0, GENTL_INFINITE), GC_ERR_INVALID_BUFFER);
    EXPECT_NE(camera->lib->last_error(GC_ERR_INVALID_BUFFER).find("BUF_ANNOUNCE_MIN"), std::string::npos);
}

TEST_F(Supply, FramesLargerThanTheBufferAreCutAndSaySo) {
    constexpr size_t payload = 640 * 480;
    for (const size_t size : {payload - 1, payload / 2, size_t{100}}) {
        SCOPED_TRACE(size);
        bench::frame_reader reader{*camera, 6, false, size};
        reader.allow_pauses();
        reader.start(4);
        for (uint64_t block = 1; block <= 4; ++block) {
            const auto frame = reader.next(5000);
            expect_right(frame);
            EXPECT_EQ(frame->block_id, block);
            EXPECT_TRUE(frame->too_large);
            EXPECT_EQ(frame->data_size, payload);
            EXPECT_EQ(frame->filled, size);
        }
        EXPECT_TRUE(reader.margins_untouched()) << "written behind the buffer's end";
        expect_all_accounted(reader, 4);
        reader.stop();
    }
}

// One stream, one set of buffers, another picture for each acquisition.
TEST_F(Supply, ThePayloadSizeMayChangeBetweenAcquisitions) {
    constexpr size_t capacity = 640 * 480 * 2;
    bench::frame_reader reader{*camera, 6, false, capacity};
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
        const auto payload = static_cast<size_t>(cli::require_integer(camera->remote(), "PayloadSize"));
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
