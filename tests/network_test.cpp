// Camera and consumer on two hosts: a cable with an MTU between two network namespaces.
#include "support/frame_reader.h"
#include "support/test_system.h"
#include "support/two_hosts.h"

#include <gtest/gtest.h>

#include <sched.h>

#include <thread>

using namespace test_support;

namespace {

struct cable_case {
    const char* name;
    int camera_mtu;
    int consumer_mtu;
    int packet_size; // what the search must find: the smaller MTU, or the camera's largest
    std::vector<std::string> camera;
    int slack = 0; // a cable lets pass what is larger by a VLAN tag
};

void PrintTo(const cable_case& given, std::ostream* out) { *out << given.name; }

class Cable : public testing::TestWithParam<cable_case> {};

void expect_every_frame(const nlohmann::json& result, int frames) {
    EXPECT_EQ(result.value("verified", false), true) << result;
    EXPECT_EQ(result.value("frames_complete", 0), frames) << result;
    EXPECT_EQ(result.value("frames_incomplete", -1), 0) << result;
    EXPECT_EQ(result.value("frames_lost", -1), 0) << result;
    EXPECT_EQ(result.value("underruns", -1), 0) << result;
}

} // namespace

TEST_P(Cable, TheLargestPacketIsFoundAndEveryFrameComes) {
    const cable_case& given = GetParam();
    two_hosts hosts;
    if (!hosts.ready()) GTEST_SKIP() << hosts.why_not();
    hosts.set_mtu(given.camera_mtu, given.consumer_mtu);
    test_system own;
    own.spread_over(hosts.camera_side(), hosts.consumer_side(), two_hosts::net);
    std::vector<std::string> options{"--width", "640", "--height", "480", "--frame-rate", "6"};
    options.insert(options.end(), given.camera.begin(), given.camera.end());
    own.start_camera(options);
    own.start_service();
    // The camera sends as many and rests: nothing is under way when the counters are read.
    const auto result = own.grab(
        {"--frames", "20", "--verify", "--set", "AcquisitionMode=MultiFrame", "--set", "AcquisitionFrameCount=20"});
    expect_every_frame(result, 20);
    EXPECT_GE(result.value("packet_size", 0), given.packet_size) << result;
    EXPECT_LE(result.value("packet_size", 0), given.packet_size + given.slack) << result;
    const auto counted = own.end_camera(0);
    EXPECT_EQ(result.value("resend_packets_requested", -1), counted.value("resend_packets_requested", -2)) << counted;
}

INSTANTIATE_TEST_SUITE_P(TwoHosts, Cable,
                         testing::Values( // The camera's own interface lets it go; it vanishes on the way.
                             cable_case{"narrower_at_the_consumer", 9000, 4000, 4000, {}, 4},
                             cable_case{"coalesced", 9000, 9000, 9000, {"--gso"}}),
                         [](const auto& chosen) { return std::string{chosen.param.name}; });

// Each acquisition begins with the size that the one before it found, and looks again only when that fails.
TEST(TwoHosts, AnMtuThatChangesBetweenAcquisitionsIsMet) {
    two_hosts hosts;
    if (!hosts.ready()) GTEST_SKIP() << hosts.why_not();
    test_system own;
    own.spread_over(hosts.camera_side(), hosts.consumer_side(), two_hosts::net);
    own.start_camera({"--width", "640", "--height", "480", "--frame-rate", "10"});
    own.start_service();
    // A consumer in this process: its thread, and those that the library starts from it, live in the namespace.
    std::thread consumer{[&] {
        ASSERT_EQ(setns(hosts.consumer_side(), CLONE_NEWNET), 0);
        open_camera camera;
        frame_reader reader{camera, 8, false};
        reader.allow_pauses();
        for (const auto& [mtu, packet_size] : {std::pair{9000, 9000}, {4000, 4000}, {1500, 1500}, {9000, 1500}}) {
            SCOPED_TRACE(mtu);
            hosts.set_mtu(mtu, mtu);
            reader.start(5);
            for (uint64_t block = 1; block <= 5; ++block) {
                const auto frame = reader.next(5000);
                ASSERT_TRUE(frame);
                EXPECT_EQ(frame->block_id, block);
                EXPECT_EQ(frame->missing_packets + frame->foreign_packets, 0U);
            }
            reader.stop();
            EXPECT_EQ(reader.packet_size(), packet_size);
        }
    }};
    consumer.join();
}
