// Frames from camera to consumer, every byte checked.
#include "bench.h"

#include <gtest/gtest.h>

#include <signal.h>

using bench::test_bench;

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
    test_bench own;
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
                         testing::Values(stream_case{"jumbo", {}, 9216}, stream_case{"mtu1500", {"--mtu", "1500"}, 0},
                                         stream_case{"small_maximum", {"--max-packet-size", "1500"}, 1500},
                                         stream_case{"extended", {"--extended-ids"}, 0},
                                         stream_case{"zipped_document", {"--zip"}, 0},
                                         stream_case{"rgb", {"--pixel-format", "RGB8"}, 0},
                                         stream_case{"packed", {"--pixel-format", "Mono12p"}, 0},
                                         stream_case{"coalesced", {"--gso"}, 0}),
                         [](const auto& chosen) { return std::string{chosen.param.name}; });

// What the network loses and the camera still has is asked for again: no frame is lost.
TEST(GrabLossy, LostPacketsAreSentAgain) {
    test_bench own;
    own.start_camera({"--width", "640", "--height", "480", "--frame-rate", "20", "--loss", "0.02", "--seed", "5",
                      "--max-packet-size", "1500"});
    own.start_service();
    auto result = own.grab(
        {"--frames", "40", "--verify", "--set", "AcquisitionMode=MultiFrame", "--set", "AcquisitionFrameCount=40"});
    EXPECT_EQ(result["verified"], true) << result;
    EXPECT_EQ(result["frames_incomplete"], 0) << result;
    EXPECT_EQ(result["frames_lost"], 0) << result;
    own.camera(0).signal(SIGTERM);
    own.camera(0).wait();
    const std::string output = own.camera(0).output();
    const auto stats = nlohmann::json::parse(output.substr(output.find('{')), nullptr, false);
    ASSERT_TRUE(stats.is_object()) << output;
    EXPECT_GT(stats.value("packets_lost", 0), 50) << "the test must have something to mend";
    EXPECT_EQ(result["resend_packets_requested"].get<int>(), stats.value("resend_packets_requested", 0))
        << "library and camera count alike: " << stats;
}

TEST(GrabChunks, EveryChunkIsListed) {
    for (const char* form : {"standard", "extended"}) {
        SCOPED_TRACE(form);
        test_bench own;
        std::vector<std::string> options{"--width", "320", "--height", "240"};
        if (std::string{form} == "extended") options.push_back("--extended-ids");
        own.start_camera(options);
        own.start_service();
        auto result = own.grab({"--frames", "5", "--verify", "--chunks", "--set", "ChunkModeActive=true"});
        EXPECT_EQ(result["verified"], true) << result;
        ASSERT_TRUE(result["chunks"].is_array()) << result;
        EXPECT_GE(result["chunks"].size(), 2U) << result;
    }
}

TEST(GrabMany, FourCamerasByFourConsumersAndTwoByOne) {
    test_bench own;
    for (int i = 0; i < 4; ++i) own.start_camera({"--width", "320", "--height", "240"});
    own.start_service();
    std::vector<bench::process> consumers;
    for (size_t i = 0; i < 4; ++i) {
        consumers.push_back(own.start_consumer(
            {"grab", "--device", test_bench::serial(i), "--frames", "30", "--verify", "--json", "--quiet"}));
    }
    for (auto& consumer : consumers) {
        EXPECT_EQ(consumer.wait(), 0) << consumer.output();
        const auto result = nlohmann::json::parse(consumer.output(), nullptr, false);
        EXPECT_EQ(result.value("verified", false), true) << consumer.output();
        EXPECT_EQ(result.value("frames_delivered", 0), 30) << consumer.output();
    }

    bench::open_camera first{test_bench::serial(0)};
    bench::open_camera second{first, test_bench::serial(1)};
    first.start();
    second.start();
    for (uint64_t frame = 1; frame <= 20; ++frame) {
        EXPECT_EQ(first.next_frame(5000), frame);
        EXPECT_EQ(second.next_frame(5000), frame);
    }
    first.stop();
    second.stop();
}
