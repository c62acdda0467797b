// Several cameras on one link: what their bursts lose of each other, and that a plan ends it.
#include "support/test_system.h"

#include <gtest/gtest.h>

#include <signal.h>

#include <fstream>

using namespace test_support;

namespace {

struct loss {
    uint64_t dropped = 0;    // by the link
    uint64_t incomplete = 0; // frames that came incomplete, or did not come
};

constexpr int cameras = 3;

// Cameras of one process behind a switch: three times 13 of 50 MB/s. Their frame rates are not alike, so that their
// bursts meet within a few frames whatever their phases are, and part again.
loss run_three_cameras(const std::vector<std::string>& plan) {
    test_system own;
    const std::string stats = own.folder() / "stats";
    own.start_camera({"--cameras", std::to_string(cameras), "--width", "640", "--height", "400", "--frame-rate", "40",
                      "--link", "400", "--link-buffer", "65536", "--no-resend", "--tick-frequency", "8000000",
                      "--stats-file", stats, "--quiet"});
    for (int i = 1; i < cameras; ++i) own.add_camera(static_cast<size_t>(i));
    own.start_service();
    const auto device = [](int i) { return i == 0 ? std::string{"CAM0"} : "CAM0-" + std::to_string(i + 1); };
    for (int i = 0; i < cameras; ++i)
        EXPECT_EQ(own.run_consumer({"set", "--device", device(i), "AcquisitionFrameRate=" + std::to_string(40 + 7 * i)})
                      .exit_code,
                  0);
    if (!plan.empty()) {
        EXPECT_EQ(own.run_consumer(plan).exit_code, 0);
    }
    std::vector<process> running;
    for (int i = 0; i < cameras; ++i)
        running.push_back(own.start_consumer(
            {"grab", "--device", device(i), "--frames", "60", "--buffers", "60", "--quiet", "--json"}));
    loss sum;
    for (process& each : running) {
        EXPECT_EQ(each.wait(), 0);
        auto result = nlohmann::json::parse(each.output(), nullptr, false);
        EXPECT_EQ(result["frames_delivered"], 60) << result;
        sum.incomplete += result["frames_incomplete"].get<uint64_t>() + result["frames_lost"].get<uint64_t>();
    }
    own.camera(0).signal(SIGTERM);
    own.camera(0).wait();
    std::ifstream file{stats};
    for (std::string line; std::getline(file, line);)
        sum.dropped += nlohmann::json::parse(line, nullptr, false)["link_dropped"].get<uint64_t>();
    return sum;
}

} // namespace

TEST(Plan, WithoutOneCamerasDrownEachOther) {
    const loss without = run_three_cameras({});
    EXPECT_GT(without.dropped, 0U);
    EXPECT_GT(without.incomplete, 0U);
}

TEST(Plan, WithOneTheLinkDropsNothing) {
    for (const char* by : {"limit", "delay"}) {
        const loss with = run_three_cameras({"plan", "--link", "400", "--by", by, "--apply"});
        // Not the frames: a starved receiver's buffer may lose what the link carried.
        EXPECT_EQ(with.dropped, 0U) << by;
    }
}
