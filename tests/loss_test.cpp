// A network that loses, reorders, repeats and delays, seeded: what the camera can still send again is delivered
// complete and byte for byte, in order; what it cannot is delivered incomplete and says so; and both sides count alike.
#include "support/frame_reader.h"
#include "support/test_system.h"

#include <gtest/gtest.h>

using namespace test_support;
using namespace GenTL;

namespace {

// A frame has three frame times to be mended in, and a request half a one: long enough for a busy machine.
constexpr const char* frame_rate = "6";
constexpr uint64_t frame_count = 15;

enum class outcome {
    all_complete,
    refused_incomplete, // frames of which the camera refused a packet may be incomplete, no others
    some_incomplete,    // nobody asks for anything again
};

struct loss_case {
    const char* name;
    std::vector<std::string> camera;
    const char* at_work; // a counter of the camera that shows that the fault was there
    outcome expected = outcome::all_complete;
    bool extended = false;
    const char* packet_size = "1500";
};

void PrintTo(const loss_case& given, std::ostream* out) { *out << given.name; }

class Loss : public testing::TestWithParam<loss_case> {};

} // namespace

TEST_P(Loss, WhatCanBeMendedIsAndBothSidesCountAlike) {
    const loss_case& given = GetParam();
    test_system own;
    std::vector<std::string> options{"--width",      "640",      "--height",          "480",
                                     "--frame-rate", frame_rate, "--max-packet-size", given.packet_size};
    if (given.extended) options.push_back("--extended-ids");
    options.insert(options.end(), given.camera.begin(), given.camera.end());
    own.start_camera(options);
    own.start_service();

    uint64_t complete = 0;
    uint64_t incomplete = 0;
    uint64_t asked_for = 0;
    {
        open_camera camera;
        frame_reader reader{camera, 20, given.extended};
        reader.start(frame_count);
        uint64_t last = 0;
        while (last < frame_count) {
            const auto frame = reader.next(3000);
            if (!frame) break;
            EXPECT_GT(frame->block_id, last) << "frames come in order, each once";
            last = frame->block_id;
            ++(frame->incomplete ? incomplete : complete);
            SCOPED_TRACE(testing::Message() << "block " << frame->block_id);
            EXPECT_EQ(frame->foreign_packets, 0U) << "bytes of another frame";
            EXPECT_EQ(frame->width, 640U);
            EXPECT_EQ(frame->height, 480U);
            EXPECT_EQ(frame->data_size, 640U * 480U);
            EXPECT_EQ(frame->filled, frame->data_end);
            if (!frame->incomplete) {
                EXPECT_EQ(frame->missing_packets, 0U) << "called complete";
            }
        }
        EXPECT_EQ(last, frame_count) << "the last frame was not delivered";
        reader.stop();
        EXPECT_EQ(reader.packet_size(), std::atoi(given.packet_size));
        EXPECT_TRUE(reader.margins_untouched());
        EXPECT_EQ(reader.info(STREAM_INFO_NUM_DELIVERED), complete + incomplete);
        EXPECT_EQ(reader.info(STREAM_INFO_NUM_UNDERRUN), 0U);
        EXPECT_EQ(complete + incomplete + reader.info(STREAM_INFO_KRV_NUM_TRANSMISSION_DROP), frame_count);
        asked_for = static_cast<uint64_t>(cli::require_integer(reader.features(), "StreamResendRequestedPackets"));
    }
    const nlohmann::json counted = own.end_camera(0);
    SCOPED_TRACE(counted.dump());
    const auto count = [&](const char* name) { return counted.value(name, uint64_t{0}); };
    EXPECT_EQ(count("frames_sent"), frame_count);
    EXPECT_GT(count(given.at_work), 0U) << "nothing went wrong that the test could look at";
    EXPECT_EQ(asked_for, count("resend_packets_requested"));
    switch (given.expected) {
    case outcome::all_complete:
        EXPECT_EQ(complete, frame_count);
        EXPECT_GE(count("packets_resent"), count("packets_lost"));
        break;
    case outcome::refused_incomplete:
        EXPECT_GT(incomplete, 0U);
        EXPECT_LE(incomplete, count("frames_refused"));
        break;
    case outcome::some_incomplete:
        EXPECT_GT(incomplete, 0U);
        EXPECT_GT(complete, 0U);
        EXPECT_EQ(asked_for, 0U);
        break;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Network, Loss,
    testing::Values(
        loss_case{"everything_extended_jumbo",
                  {"--loss", "0.02", "--reorder", "0.1", "--duplicate", "0.1", "--delay", "0.02", "--garbage", "0.1",
                   "--seed", "15"},
                  "garbage_sent",
                  outcome::all_complete,
                  true,
                  "9000"},
        loss_case{"requests_and_resends_lost",
                  {"--loss", "0.005", "--resend-request-loss", "0.15", "--resend-loss", "0.1", "--seed", "16"},
                  "resend_requests_lost"},
        loss_case{"small_ring",
                  {"--loss", "0.005", "--ring", "1", "--pacing", "0.9", "--seed", "18"},
                  "frames_refused",
                  outcome::refused_incomplete},
        loss_case{"refused_extended_jumbo",
                  {"--loss", "0.05", "--resend-refuse", "0.2", "--seed", "20"},
                  "frames_refused",
                  outcome::refused_incomplete,
                  true,
                  "9000"},
        loss_case{"without_resend",
                  {"--loss", "0.002", "--no-resend", "--reorder", "0.1", "--duplicate", "0.1", "--seed", "21"},
                  "packets_lost",
                  outcome::some_incomplete}),
    [](const auto& chosen) { return std::string{chosen.param.name}; });
