// Frames from camera to consumer, every byte checked.
#include "support/test_system.h"

#include <gtest/gtest.h>

#include <signal.h>

using namespace test_support;

namespace {

struct stream_case {
    const char* name;
    std::vector<std::string> camera;
    int packet_size; // expected; 0: not looked at
};

void PrintTo(const stream_case& given, std::ostream* out) { *out << given.name; }

class Grab : public testing::TestWithParam<stream_case> {};

} // namespace

TEST_P(Grab, DeliversEveryFrameCompleteAndInOrder) {
    test_system own;
    std::vector<std::string> options = GetParam().camera;
    options.insert(options.end(), {"--width", "640", "--height", "480", "--frame-rate", "60"});
    own.start_camera(options);
    own.start_service();
    auto result = own.grab({"--frames", "60", "--verify", "--chunks", "--buffers", "20"});
    EXPECT_EQ(result["verified"], true) << result;
    EXPECT_EQ(result["frames_delivered"], 60) << result;
    EXPECT_EQ(result["frames_incomplete"], 0) << result;
    EXPECT_EQ(result["frames_lost"], 0) << result;
    EXPECT_EQ(result["underruns"], 0) << result;
    if (GetParam().packet_size != 0) {
        EXPECT_EQ(result["packet_size"], GetParam().packet_size) << result;
    }
}

INSTANTIATE_TEST_SUITE_P(Streams, Grab,
                         testing::Values(stream_case{"jumbo", {}, 9216}, stream_case{"extended", {"--extended-ids"}, 0},
                                         stream_case{"zipped_document", {"--zip"}, 0},
                                         stream_case{"packed", {"--pixel-format", "Mono12p"}, 0}),
                         [](const auto& chosen) { return std::string{chosen.param.name}; });

TEST(GrabChunks, EveryChunkIsListed) {
    for (const char* form : {"standard", "extended"}) {
        SCOPED_TRACE(form);
        small_system own{std::string{form} == "extended" ? std::vector<std::string>{"--extended-ids"}
                                                         : std::vector<std::string>{}};
        auto result = own.grab({"--frames", "5", "--verify", "--chunks", "--set", "ChunkModeActive=true"});
        EXPECT_EQ(result["verified"], true) << result;
        ASSERT_TRUE(result["chunks"].is_array()) << result;
        EXPECT_GE(result["chunks"].size(), 2U) << result;
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
    first.start();
    second.start();
    for (uint64_t frame = 1; frame <= 20; ++frame) {
        EXPECT_EQ(first.next_frame(5000), frame);
        EXPECT_EQ(second.next_frame(5000), frame);
    }
    first.stop();
    second.stop();
}
