// A camera started again and again by its own commands while the library's acquisition goes on.
#include "support/frame_reader.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace test_support;
using namespace GenTL;

namespace {

struct restart_case {
    const char* name;
    std::vector<std::string> camera;
    uint64_t frames; // of a round
    bool stopped;    // by the consumer, instead of by itself
};

void PrintTo(const restart_case& given, std::ostream* out) { *out << given.name; }

class Restart : public testing::TestWithParam<restart_case> {};

} // namespace

TEST_P(Restart, EveryFrameOfEveryRoundComes) {
    constexpr uint64_t rounds = 5;
    const restart_case& given = GetParam();
    std::vector<std::string> options = given.camera;
    // A frame has three frame times to be mended in: enough of them for a busy machine.
    const bool has_losses = std::ranges::find(given.camera, "--loss") != given.camera.end();
    options.insert(options.end(), {"--frame-rate", has_losses ? "20" : "60"});
    small_system own{options};
    open_camera camera;
    frame_reader reader{camera, 12, false};
    uint64_t seen = 0;
    uint64_t last_timestamp = 0;
    for (uint64_t round = 0; round < rounds; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        if (round == 0) {
            reader.start(given.stopped ? 0 : given.frames);
        } else {
            camera.execute("AcquisitionStart");
        }
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
        for (uint64_t block = 1; block <= given.frames; ++block) ASSERT_TRUE(take(block, 3000)) << block;
        if (!given.stopped) continue;
        camera.execute("AcquisitionStop");
        for (uint64_t block = given.frames + 1; take(block, 200); ++block) {
        }
    }
    reader.stop();
    EXPECT_EQ(reader.info(STREAM_INFO_NUM_DELIVERED), seen);
    EXPECT_EQ(reader.info(STREAM_INFO_KRV_NUM_TRANSMISSION_DROP), 0U);
}

INSTANTIATE_TEST_SUITE_P(Commands, Restart,
                         testing::Values(restart_case{"single_frame_without_resends", {"--no-resend"}, 1, false},
                                         restart_case{"multi_frame_with_losses",
                                                      {"--loss", "0.01", "--max-packet-size", "1500", "--seed", "7"},
                                                      10,
                                                      false},
                                         restart_case{"start_and_stop", {}, 3, true}),
                         [](const auto& chosen) { return std::string{chosen.param.name}; });
