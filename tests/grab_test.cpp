// Frames from camera to consumer, every byte checked.
#include "support/frame_reader.h"
#include "support/test_system.h"

#include <camera_sim/registers.h>

#include <gtest/gtest.h>

using namespace test_support;
namespace reg = camera_sim::reg;

TEST(Grab, DeliversEveryFrameCompleteAndInOrder) {
    test_system own;
    own.start_camera({"--width", "640", "--height", "480", "--frame-rate", "10"});
    own.start_service();
    auto result = own.grab({"--frames", "20", "--verify", "--buffers", "20"});
    EXPECT_EQ(result["verified"], true) << result;
    EXPECT_EQ(result["frames_delivered"], 20) << result;
    EXPECT_EQ(result["frames_incomplete"], 0) << result;
    EXPECT_EQ(result["frames_lost"], 0) << result;
    EXPECT_EQ(result["underruns"], 0) << result;
    EXPECT_EQ(result["packet_size"], 9216) << result;
}

TEST(GrabChunks, EveryChunkIsListed) {
    for (const char* form : {"standard", "extended"}) {
        SCOPED_TRACE(form);
        small_system own{std::string{form} == "extended" ? std::vector<std::string>{"--extended-ids"}
                                                         : std::vector<std::string>{}};
        auto result = own.grab({"--frames", "5", "--verify", "--chunks", "--set", "ChunkModeActive=true"});
        EXPECT_EQ(result["verified"], true) << result;
        std::vector<uint32_t> ids, expected{reg::image_chunk_id};
        for (const auto& each : reg::chunks) expected.push_back(each.id);
        for (const auto& each : result["chunks"]) ids.push_back(each.value("id", 0U));
        EXPECT_EQ(ids, expected) << result;
    }
}

TEST(GrabMany, FourCamerasByFourConsumersAndTwoByOne) {
    test_system own;
    for (int i = 0; i < 4; ++i) own.start_camera(small());
    own.start_service();
    std::vector<process> consumers;
    for (size_t i = 0; i < 4; ++i) {
        consumers.push_back(own.start_consumer(
            {"grab", "--device", test_system::serial(i), "--frames", "30", "--verify", "--json", "--quiet"}));
    }
    for (auto& consumer : consumers) {
        EXPECT_EQ(consumer.wait(), 0) << consumer.output();
        const auto result = nlohmann::json::parse(consumer.output(), nullptr, false);
        EXPECT_EQ(result.value("verified", false), true) << consumer.output();
        EXPECT_EQ(result.value("frames_delivered", 0), 30) << consumer.output();
    }

    open_camera first;
    open_camera second{first, test_system::serial(1)};
    first.start(20); // a buffer for each frame
    second.start(20);
    for (uint64_t frame = 1; frame <= 20; ++frame) {
        EXPECT_EQ(first.next_frame(5000), frame);
        EXPECT_EQ(second.next_frame(5000), frame);
    }
    first.stop();
    second.stop();
}

// The library's acquisition goes on while the camera is stopped and started by its own commands.
TEST(GrabRestarts, EveryFrameOfEveryRoundComes) {
    using namespace GenTL;
    small_system own{{"--frame-rate", "60"}};
    open_camera camera;
    frame_reader reader{camera, 40, false};
    reader.allow_pauses();
    uint64_t seen = 0;
    uint64_t last_timestamp = 0;
    for (int round = 0; round < 5; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        if (round == 0)
            reader.start(0);
        else
            camera.execute("AcquisitionStart");
        const auto take = [&](uint64_t block, uint64_t patience_ms) {
            const auto frame = reader.next(patience_ms);
            if (!frame) return false;
            ++seen;
            EXPECT_EQ(frame->block_id, block);
            EXPECT_FALSE(frame->incomplete) << "frame " << block;
            EXPECT_EQ(frame->missing_packets + frame->foreign_packets, 0U);
            EXPECT_GT(frame->timestamp, last_timestamp) << "a frame of an earlier round";
            last_timestamp = frame->timestamp;
            return true;
        };
        uint64_t block = 1;
        for (; block <= 3; ++block) ASSERT_TRUE(take(block, 3000)) << block;
        camera.execute("AcquisitionStop");
        while (take(block, 1000)) ++block;
    }
    reader.stop();
    EXPECT_EQ(reader.info(STREAM_INFO_NUM_DELIVERED), seen);
    EXPECT_EQ(reader.info(STREAM_INFO_KRV_NUM_TRANSMISSION_DROP), 0U);
}

// One stream, one set of buffers, another picture for each acquisition.
TEST(GrabSizes, ThePayloadSizeMayChangeBetweenAcquisitions) {
    using namespace GenTL;
    small_system own{{"--frame-rate", "40"}};
    open_camera camera;
    constexpr size_t capacity = 320 * 240 * 2;
    frame_reader reader{camera, 6, false, capacity};
    reader.allow_pauses();
    const struct {
        size_t width, height;
        const char* format;
        bool chunks;
        size_t bytes;
    } pictures[]{{320, 240, "Mono8", false, 320 * 240},
                 {160, 120, "Mono8", false, 160 * 120},
                 {320, 240, "Mono12p", false, 320 * 240 * 3 / 2},
                 {320, 240, "RGB8", false, 320 * 240 * 3}, // larger than the buffers
                 {320, 240, "Mono8", true, 320 * 240},
                 {312, 239, "Mono8", false, 312 * 239}};
    for (const auto& each : pictures) {
        SCOPED_TRACE(testing::Message() << each.width << "x" << each.height << " " << each.format);
        camera.set("ChunkModeActive", each.chunks ? "1" : "0");
        camera.set("Width", std::to_string(each.width));
        camera.set("Height", std::to_string(each.height));
        camera.set("PixelFormat", each.format);
        const auto payload = static_cast<size_t>(camera.integer("PayloadSize"));
        EXPECT_EQ(reader.size_info(STREAM_INFO_PAYLOAD_SIZE), payload);
        EXPECT_EQ(payload > each.bytes, each.chunks);
        reader.start(4);
        for (uint64_t block = 1; block <= 4; ++block) {
            const auto frame = reader.next(5000);
            ASSERT_TRUE(frame);
            EXPECT_FALSE(frame->incomplete);
            EXPECT_EQ(frame->missing_packets + frame->foreign_packets, 0U);
            EXPECT_EQ(frame->block_id, block);
            EXPECT_EQ(frame->width, each.width);
            EXPECT_EQ(frame->height, each.height);
            EXPECT_EQ(frame->data_size, payload);
            EXPECT_EQ(frame->filled, std::min(payload, capacity));
            EXPECT_EQ(frame->too_large, payload > capacity);
            EXPECT_EQ(frame->has_chunks, each.chunks);
        }
        reader.stop();
        EXPECT_EQ(reader.info(STREAM_INFO_NUM_DELIVERED), 4U);
        EXPECT_EQ(reader.info(STREAM_INFO_NUM_UNDERRUN), 0U);
        EXPECT_EQ(cli::require_integer(reader.features(), "StreamDeliveredFrameCount"), 4);
        EXPECT_TRUE(reader.margins_untouched());
    }
}
