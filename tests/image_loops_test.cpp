// The automatic functions closed over the whole system: the real library and service, and a simulated camera whose
// picture answers to light, exposure, gain, iris, focus and white balance. Time is counted in frames of 30 per second:
// a pass takes three. One loop for each way between the ends; how each function steps is img_pipe's own to test.
#include "loop_runner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <ranges>
#include <span>
#include <thread>
#include <tuple>

using test_support::loop_sample;
using test_support::open_camera;
using test_support::test_system;
using samples = std::vector<loop_sample>;

namespace {

constexpr double wanted = 102.0 / 255;
constexpr size_t frames_per_pass = 3;

struct loop {
    std::string name;
    std::vector<std::string> scene;      // the camera's options
    test_support::feature_values values; // set in this order before the stream
    size_t frames = 0;
    std::string over{}; // a feature that ends the run when it is false or "Off"
    samples seen{};     // afterwards
    std::string failure{};
};

std::string text_of(open_camera& camera, const std::string& name) {
    std::string error;
    return cli::value_text(cli::require_node(camera.remote(), name), error);
}

bool is_over(open_camera& camera, const std::string& name) {
    const std::string text = text_of(camera, name);
    return text == "false" || text == "Off";
}

// For the plots of docs/image-processing.md, into a folder that the environment names.
void write_table(const loop& each) {
    const char* const folder = std::getenv("ORV_LOOPS_OUTPUT");
    if (folder == nullptr) return;
    std::ofstream file{std::filesystem::path{folder} / (each.name + ".dat")};
    file << "# frame brightness exposure gain iris focus red green blue\n";
    for (const loop_sample& s : each.seen)
        file << s.frame << ' ' << s.luma << ' ' << s.exposure << ' ' << s.gain << ' ' << s.iris << ' ' << s.focus << ' '
             << s.mean[0] << ' ' << s.mean[1] << ' ' << s.mean[2] << '\n';
}

// All at once, each with a camera of its own; `look` at each afterwards.
void run_all(
    std::vector<loop>& loops, const std::function<void(open_camera&)>& look = [](open_camera&) {}) {
    test_system own{{"--log-level", "3"}};
    for (const loop& each : loops) {
        std::vector<std::string> options{"--sensor-width", "320", "--sensor-height", "240",
                                         "--frame-rate",   "30",  "--pixel-format",  "BayerRG8"};
        options.insert(options.end(), each.scene.begin(), each.scene.end());
        if (std::ranges::find(each.scene, "--scene") == each.scene.end())
            options.insert(options.end(), {"--scene", "grey"});
        own.start_camera(options);
    }
    own.start_service();
    std::vector<std::unique_ptr<open_camera>> cameras;
    cameras.push_back(std::make_unique<open_camera>(test_system::serial(0)));
    for (size_t i = 1; i < loops.size(); ++i) {
        // The first one is found before the others are.
        for (int tries = 50; cameras.size() == i; --tries) {
            try {
                cameras.push_back(std::make_unique<open_camera>(*cameras[0], test_system::serial(i)));
            } catch (const std::runtime_error&) {
                if (tries == 0) throw;
            }
        }
    }
    std::vector<std::jthread> threads;
    for (size_t i = 0; i < loops.size(); ++i)
        threads.emplace_back([&each = loops[i], &camera = *cameras[i]] {
            try {
                test_support::set_features(camera, {{"SoftwareImageProcessingEnable", "true"}});
                test_support::set_features(camera, each.values);
                const auto over = [&] { return is_over(camera, each.over); };
                each.seen =
                    test_support::run_loop(camera, each.frames, each.over.empty() ? std::function<bool()>{} : over);
            } catch (const std::exception& error) {
                each.failure = error.what();
            }
        });
    threads.clear();
    for (const auto& camera : cameras) look(*camera);
    for (const loop& each : loops) {
        EXPECT_EQ(each.failure, "") << each.name;
        write_table(each);
    }
}

// The picture is never past the wanted brightness by more than a tenth, from frame `first` on within a twelfth of it,
// and in the last third nothing moves.
void expect_reached(const std::string& name, std::span<const loop_sample> seen, size_t first, bool rising) {
    ASSERT_GT(seen.size(), first) << name;
    double past = 0, off = 0;
    for (size_t i = 0; i < seen.size(); ++i) {
        const double above = seen[i].luma / wanted - 1;
        past = std::max(past, rising ? above : -above);
        if (i >= first) off = std::max(off, std::abs(above));
    }
    EXPECT_LT(past, 0.1) << name << ": beyond it";
    EXPECT_LT(off, 1.0 / 12) << name << ": not reached";
    const auto values = [](const loop_sample& s) { return std::tuple{s.exposure, s.gain, s.iris}; };
    for (const loop_sample& s : seen.last((seen.size() - first) / 3))
        EXPECT_EQ(values(s), values(seen.back())) << name << ": not still";
}

// The largest distance of a channel's mean from that of all.
double worst_channel(const loop_sample& s) {
    const double mean = (s.mean[0] + s.mean[1] + s.mean[2]) / 3;
    double worst = 0;
    for (const double each : s.mean) worst = std::max(worst, std::abs(each / mean - 1));
    return worst;
}

// 15 passes, and three frames until the last value shows.
constexpr size_t reached = 15 * frames_per_pass + 3;

} // namespace

// From a 16th of the right brightness and from 16 times.
TEST(ImageLoops, ReachTheBrightnessInFifteenPasses) {
    std::vector<loop> loops{
        {"exposure from a 16th", {}, {{"ExposureTime", "625"}, {"AutoExposure", "true"}}, 90},
        {"exposure from 16 times", {}, {{"ExposureTime", "160000"}, {"AutoExposure", "true"}}, 90},
    };
    run_all(loops);
    for (const loop& each : loops) expect_reached(each.name, each.seen, reached, each.name.ends_with("16th"));
}

TEST(ImageLoops, FollowTheLightAndKeepTheOrder) {
    std::vector<loop> loops{
        {"light that doubles and halves",
         {"--light", "0:1", "--light", "60:2", "--light", "120:1", "--light", "180:0.5"},
         {{"AutoExposure", "true"}},
         250},
        {"100 Hz",
         {"--light", "0:4", "--flicker", "0.3"},
         {{"AcquisitionFrameRate", "29.3"}, {"ExposureTime", "2500"}, {"AutoExposure", "true"}},
         150},
        {"gain first downwards",
         {"--light", "0:4"},
         {{"Gain", "9"}, {"AutoExposure", "true"}, {"AutoGain", "true"}},
         120},
    };
    run_all(loops);
    const samples& light = loops[0].seen;
    ASSERT_EQ(light.size(), 250U);
    for (const size_t step : {60U, 120U, 180U}) // all of it is over before the next
        expect_reached("light from frame " + std::to_string(step), std::span{light}.subspan(step, 58), reached - 6,
                       step != 60);
    EXPECT_NEAR(light[110].exposure / light[58].exposure, 0.5, 0.05);

    for (const loop_sample& s : loops[2].seen) EXPECT_TRUE(s.exposure == 10000 || s.gain == 0) << s.frame;
    EXPECT_LT(loops[2].seen.back().exposure, 3000);
    EXPECT_EQ(loops[2].seen.back().gain, 0);
    EXPECT_NEAR(loops[2].seen.back().luma / wanted, 1, 1.0 / 12);
}

// A black body of 4000 K as a camera that is balanced at 6500 K sees it, and a lamp that is none: its gains are given.
TEST(ImageLoops, WhiteBalanceByTemperature) {
    const auto once = [](test_support::feature_values values) {
        values.insert(values.begin(), {"AutoWhiteBalanceMethod", "ColorTemperature"});
        values.emplace_back("AutoWhiteBalance", "Once");
        return values;
    };
    std::vector<loop> loops{
        {"by temperature", {"--light", "0:0.8:1.292:0.641"}, once({}), 200, "AutoWhiteBalance"},
        {"a lamp of its own",
         {"--light", "0:1:0.7:0.4"},
         once({{"AutoColorTemperatureLightSelector", "Light3"},
               {"AutoColorTemperatureLight", "3200"},
               {"AutoColorTemperatureLightRed", "1.4286"},
               {"AutoColorTemperatureLightGreen", "1"},
               {"AutoColorTemperatureLightBlue", "2.5"}}),
         200,
         "AutoWhiteBalance"},
    };
    std::vector<double> found;
    run_all(loops, [&](open_camera& camera) { found.push_back(std::stod(text_of(camera, "AutoColorTemperature"))); });
    ASSERT_EQ(found.size(), 2U);
    // Of rows that make all grey alike the lowest counts: a few below the middle of those.
    EXPECT_NEAR(found[0], 4000, 200);
    EXPECT_NEAR(found[1], 3200, 200);
    for (const loop& each : loops) {
        ASSERT_FALSE(each.seen.empty());
        EXPECT_LT(each.seen.size(), 200U) << each.name << ": not over";
        EXPECT_GT(worst_channel(each.seen.front()), 0.25) << each.name;
        EXPECT_LT(worst_channel(each.seen.back()), 0.06) << each.name;
    }
}

TEST(ImageLoops, WhiteBalanceAndFocus) {
    std::vector<loop> loops{
        {"once", {"--light", "0:1:0.6:0.85"}, {{"AutoWhiteBalance", "Once"}}, 200, "AutoWhiteBalance"},
        {"focus", {}, {{"Focus", "0"}, {"AutoFocusOnce", "!"}}, 400, "AutoFocusRunning"},
    };
    run_all(loops);
    for (const loop& each : loops) {
        ASSERT_FALSE(each.seen.empty());
        EXPECT_LT(each.seen.size(), each.frames) << each.name << ": not over";
    }
    EXPECT_LT(worst_channel(loops[0].seen.back()), 0.02);
    EXPECT_GT(worst_channel(loops[0].seen.front()), 0.15);
    EXPECT_NEAR(static_cast<double>(loops[1].seen.back().focus), 430, 12);
}
