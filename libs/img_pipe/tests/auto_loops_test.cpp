// The automatic functions in closed loops with a model of camera and service. Their order and light that changes:
// image_loops_test, with the simulated camera.
#include "auto_camera.h"

#include <gtest/gtest.h>
#include <img_pipe/transform_pipe.h>

#include <string>

using namespace auto_test;

namespace {

constexpr double wanted = 102.0 / 255;

// Runs `passes` passes and tells how far the brightness went past the wanted one on the other side.
struct trip {
    double overshoot = 0; // of the wanted brightness
    double least = 1e9, most = 0;
};
trip follow(steered_camera& b, int passes, bool rising) {
    trip seen;
    for (int i = 0; i < passes; ++i) {
        b.run(1);
        const double past = (b.brightness / wanted - 1) * (rising ? 1 : -1);
        seen.overshoot = std::max(seen.overshoot, past);
        seen.least = std::min(seen.least, b.brightness);
        seen.most = std::max(seen.most, b.brightness);
    }
    return seen;
}

void expect_reached(steered_camera& b, const std::string& where) {
    EXPECT_NEAR(b.brightness / wanted, 1, 0.05) << where;
    const int commands = b.commands;
    b.run(12);
    EXPECT_LE(b.commands, commands + 1) << where << ": not still"; // noise may carry it over the dead band's edge once
    const int settled = b.commands;
    b.run(12);
    EXPECT_EQ(b.commands, settled) << where << ": not still";
    EXPECT_NEAR(b.brightness / wanted, 1, 0.05) << where;
}

} // namespace

// From far off to the wanted brightness in 15 passes, by each control; no further than a tenth past it, then still.
TEST(AutoLoops, ReachTheWantedBrightnessAndStayStill) {
    struct {
        const char* name;
        block::offset control;
    } const rows[] = {{"exposure", block::auto_exposure}, {"gain", block::auto_gain}, {"iris", block::auto_iris}};
    for (const auto& row : rows)
        for (const double off : {1.0 / 16, 0.25, 0.6, 1.7, 4.0, 16.0}) {
            steered_camera b;
            enable(b, {row.control});
            // In the camera's reach, and such that the model's full well does not hide what gain does.
            const camera_values start{.exposure = 8000,
                                      .gain = row.control == block::auto_gain ? 12.0 : 0,
                                      .iris = row.control != block::auto_iris ? 800.0
                                              : off < 1                       ? 400
                                                                              : 6400};
            b.settings.store(block::gain_min, -24.0F);
            b.settings.store(block::gain_max, 48.0F);
            b.settings.store(block::iris_max, std::int64_t{100000});
            const double right = b.right_exposure() / std::pow(2.0, start.gain / 6) / (start.iris / 800);
            b.light = right / start.exposure * off;
            b.set(start);
            const std::string where = std::string(row.name) + " from " + std::to_string(off);
            const trip t = follow(b, 15, off < 1);
            EXPECT_LT(t.overshoot, 0.1) << where;
            expect_reached(b, where);
        }
}

TEST(AutoLoops, SeparateIrisMovesLast) {
    steered_camera b;
    enable(b, {block::auto_exposure, block::auto_iris, block::iris_separate});
    b.settings.store(block::exposure_min, 4000.0F);
    b.light = b.right_exposure() / 8000 / 5 * 8; // 8 times too bright
    b.set({.exposure = 8000, .iris = 4000});
    for (bool moved = false; !moved;) {
        ASSERT_LT(b.passes, 60);
        const double exposure = b.values().exposure;
        b.run(1);
        moved = b.values().iris != 4000;
        EXPECT_TRUE(!moved || exposure == 4000) << exposure;
    }
    b.run(25);
    expect_reached(b, "iris");
}

// A period that is longer than what the camera takes, or than what the user allows, is no limit: the gain has its turn.
TEST(AutoLoops, TheFrameRateOnlyLowersTheLimit) {
    for (const double longest : {33000.0, 20000.0}) {
        steered_camera b;
        enable(b, {block::auto_exposure, block::auto_gain, block::exposure_by_frame_rate});
        b.takes_exposure = [](double us) { return std::min(us, 33000.0); };
        b.settings.store(block::exposure_max, static_cast<float>(longest));
        b.light = b.right_exposure() / longest / 4;
        expose(b, longest);
        b.run(25);
        expect_reached(b, "dark");
        EXPECT_EQ(b.values().exposure, longest);
        EXPECT_NEAR(b.values().gain, 12, 0.7);
    }
}

// Nor does the user's minimum lengthen a frame.
TEST(AutoLoops, TheFrameRateOutdoesTheMinimum) {
    struct {
        float min, max;
    } const rows[] = {{50000, 1e6F}, {1e6F, 50000}, {50000, 20000}};
    for (const auto& [min, max] : rows) {
        steered_camera b;
        enable(b, {block::auto_exposure, block::auto_gain, block::exposure_by_frame_rate});
        b.settings.store(block::exposure_min, min);
        b.settings.store(block::exposure_max, max);
        b.light = b.right_exposure() / 33333 / 4;
        expose(b, 33333);
        b.run(25);
        expect_reached(b, "dark");
        EXPECT_EQ(b.values().exposure, 33333) << min;
        EXPECT_NEAR(b.values().gain, 12, 0.7) << min;
        expose(b, 50000);
        b.run(1);
        EXPECT_EQ(b.values().exposure, 33333) << min;
    }
}

// A service that answers late is waited for: light is added through exposure first.
TEST(AutoLoops, ALateAnswerIsNoRefusal) {
    struct {
        double rate, longest;
        std::uint64_t turn;
    } const rows[] = {{30, 33000, 10}, {30, 33000, 40}, {120, 8000, 12}, {120, 8000, 100}};
    for (const auto& [rate, longest, turn] : rows) {
        steered_camera b;
        b.rate = rate;
        b.turn = turn;
        enable(b, {block::auto_exposure, block::auto_gain});
        b.settings.store(block::exposure_max, static_cast<float>(longest));
        b.light = b.right_exposure() / longest;
        expose(b, longest / 8);
        b.run(60);
        EXPECT_GT(b.values().exposure, longest / 3) << rate << ' ' << turn;
        EXPECT_EQ(b.values().gain, 0) << rate << ' ' << turn;
    }
}

// A control whose camera answers something else than what is asked is at rest: the others have their turn.
TEST(AutoLoops, WhatDoesNotFollowBlocksNobody) {
    struct {
        const char* name;
        double exposure, gain;
        double off; // of the right light, at a gain of 0
        std::function<double(double)> takes_exposure, takes_gain;
    } const rows[] = {
        {"dark, exposure in lines", 1000, 0, 0.25, [](double us) { return std::floor(us / 16.3) * 16.3; }, {}},
        {"bright, gain in steps that end above the minimum",
         5000,
         12,
         8,
         {},
         [](double asked) { return std::ceil(asked / 0.3 - 1e-3) * 0.3; }},
        {"bright, gain refused", 5000, 12, 1, {}, [](double) { return 12.0; }},
        {"dark, exposure locked", 5000, 0, 0.25, [](double) { return std::nan(""); }, {}},
    };
    for (const auto& row : rows) {
        steered_camera b;
        enable(b, {block::auto_exposure, block::auto_gain});
        b.settings.store(block::exposure_max, 10000.0F);
        b.settings.store(block::gain_min, row.gain > 0 ? 1.0F : 0.0F);
        if (row.takes_exposure) b.takes_exposure = row.takes_exposure;
        if (row.takes_gain) b.takes_gain = row.takes_gain;
        b.light = b.right_exposure() / 10000 * row.off;
        b.set({.exposure = row.exposure, .gain = row.gain});
        b.run(50);
        expect_reached(b, row.name);
        b.light /= row.off; // as far off the other way
        b.run(50);
        expect_reached(b, std::string(row.name) + ", and back");
    }
}

// What the camera takes may change unseen.
TEST(AutoLoops, WhatDidNotFollowIsAskedAgain) {
    steered_camera b;
    enable(b, {block::auto_exposure, block::auto_gain});
    b.settings.store(block::gain_max, 6.0F); // not enough
    b.light = b.right_exposure() / 10000;
    bool locked = true;
    b.takes_exposure = [&](double us) { return locked ? 2000.0 : us; };
    expose(b, 2000);
    b.run(40);
    EXPECT_EQ(b.values().gain, 6);
    locked = false;
    b.run(40);
    expect_reached(b, "unlocked");
    EXPECT_GT(b.values().exposure, 4000);
}

// Both lie outside the user's limits, so one pass may ask for both.
TEST(AutoLoops, TwoThatDidNotFollowAreBothAskedAgain) {
    for (const int later : {0, 1, 2, 3, 10}) {
        steered_camera b;
        bool locked = true;
        int exposures = 0, gains = 0;
        b.takes_exposure = [&](double us) { return ++exposures, locked ? 2000.0 : us; };
        b.takes_gain = [&](double decibels) { return ++gains, locked ? 0.0 : decibels; };
        b.light = b.right_exposure() / 10000;
        expose(b, 2000);
        enable(b, {block::auto_exposure, block::auto_gain});
        b.settings.store(block::exposure_min, 4000.0F);
        b.run(later);
        b.settings.store(block::gain_min, 3.0F);
        b.run(40);
        locked = false;
        exposures = gains = 0;
        b.run(50);
        EXPECT_GT(exposures, 0) << later;
        EXPECT_GT(gains, 0) << later;
        EXPECT_GE(b.values().exposure, 4000) << later;
        EXPECT_GE(b.values().gain, 3) << later;
    }
}

// Lamps at 100 Hz under an exposure of a fraction of their period: frames differ, and the loop must not make that
// worse. At rates where the passes' light turns within a dozen of them it does not move at all.
TEST(AutoLoops, FlickerIsNotPumped) {
    for (const double rate : {17.0, 30.0, 29.3, 60.0, 97.0, 130.2, 340.0}) {
        steered_camera steered, fixed;
        enable(steered, {block::auto_exposure});
        enable(fixed, {block::auto_exposure});
        double variation[2] = {}, swing[2] = {};
        int i = 0;
        for (steered_camera* b : {&steered, &fixed}) {
            b->rate = rate;
            b->flicker = 0.3;
            b->light = b->right_exposure() / 2500;
            expose(*b, 2500);
            if (b == &fixed) // no room to move in
                for (const auto at : {block::exposure_min, block::exposure_max}) b->settings.store(at, 2500.0F);
            b->run(20);
            double low = 1e9, high = 0, squares = 0, slow = 1e9, fast = 0;
            for (int k = 0; k < 60; ++k) {
                b->run(1);
                low = std::min(low, b->brightness);
                high = std::max(high, b->brightness);
                squares += (b->brightness / wanted - 1) * (b->brightness / wanted - 1);
                slow = std::min(slow, b->in_force.exposure);
                fast = std::max(fast, b->in_force.exposure);
            }
            variation[i] = std::sqrt(squares / 60);
            swing[i++] = (fast - slow) / 2500;
        }
        EXPECT_LT(variation[0], std::max(1.05 * variation[1], 0.05)) << rate << ": worse than without";
        EXPECT_LT(swing[0], 0.05) << rate;
        const double half = steered.values().exposure / 2;
        steered.light *= 2;
        steered.run(15);
        EXPECT_NEAR(steered.values().exposure, half, half / 6) << rate << ": another light is followed";
    }
}

TEST(AutoLoops, RegionAloneIsMeasured) {
    steered_camera b;
    enable(b, {block::auto_exposure, block::region_set});
    b.settings.store(block::region_left, std::int64_t{width / 2 + 1});
    b.settings.store(block::region_width, std::int64_t{100000});
    b.settings.store(block::region_top, std::int64_t{-50});
    b.settings.store(block::region_height, std::int64_t{50 + height});
    b.change_scene([](int x, int, int) { return x < width / 2 ? 0.02 : 0.5; });
    expose(b, 500);
    b.run(30);
    expect_reached(b, "right half");
    EXPECT_NEAR(b.values().exposure, wanted * full_well / 0.5, 0.05 * wanted * full_well / 0.5);
}

// The wanted brightness is the consumer's: with gamma the loop takes as many passes, and ends there.
TEST(AutoLoops, GammaOfTheTransformIsSeen) {
    for (const float gamma : {0.45F, 2.2F, 6.0F}) {
        steered_camera b;
        enable(b, {block::auto_exposure});
        b.settings.store(block::gamma, gamma);
        b.settings.store(block::exposure_reference, std::uint32_t{128});
        b.change_scene([](int, int, int) { return 0.5; });
        expose(b, 1000);
        b.run(20);
        EXPECT_NEAR(b.brightness, 128.0 / 255, 0.05 * static_cast<double>(gamma) * 0.5 + 0.01) << gamma;
        const int commands = b.commands;
        b.run(10);
        EXPECT_LE(b.commands, commands + 1) << gamma;
    }
}

namespace {

// Grey patches under a tinted light.
void tint(steered_camera& b, double red, double blue) {
    b.change_scene([=](int x, int y, int colour) {
        const double grey = 0.25 + 0.5 * ((x / 16 + y / 16) % 4) / 4.0;
        return grey * (colour == 0 ? red : colour == 2 ? blue : 1.0);
    });
}

// How far a channel's mean is from that of all; `gain` is what the consumer's side applies.
double worst_channel(steered_camera& b, const double (&gain)[3] = {1, 1, 1}) {
    (void)b.frame();
    const img_descriptor v = b.picture();
    double sum[3] = {};
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const std::uint8_t* p = kernel_test::line(v, y);
            const double value =
                v.format == fcc("RGf0") ? static_cast<double>(kernel_test::real(p + 4 * x)) : p[x] / 255.0;
            sum[x % 2 + y % 2] += value * gain[x % 2 + y % 2] / (x % 2 != y % 2 ? 2 : 1);
        }
    const double mean = (sum[0] + sum[1] + sum[2]) / 3;
    double worst = 0;
    for (const double s : sum) worst = std::max(worst, std::abs(s / mean - 1));
    return worst;
}

} // namespace

TEST(AutoLoops, WhiteBalanceOnceEndsGrey) {
    struct {
        double red, blue;
    } const rows[] = {{0.6, 0.9}, {0.8, 0.5}, {1.3, 0.7}, {1, 1}};
    for (const std::uint32_t format : {fcc("RGGB"), fcc("RGf0")})
        for (const auto& [red, blue] : rows) {
            steered_camera b;
            b.format = format;
            tint(b, red, blue);
            enable(b, {block::white_balance_once});
            expose(b, 8000);
            int passes = 0;
            while (!b.settings.flag(block::white_balance_finished)) {
                b.run(1);
                ASSERT_LT(++passes, 61);
            }
            EXPECT_LE(passes, format == fcc("RGf0") ? 1 : 40) << red << ' ' << blue;
            const int commands = b.commands;
            b.run(5);
            EXPECT_EQ(b.commands, commands) << "once is once";
            EXPECT_LT(worst_channel(b), 0.02) << red << ' ' << blue;
            EXPECT_FALSE(auto_function_is_on(b.settings));
            b.settings.set_flag(block::white_balance_finished, false);
            EXPECT_TRUE(auto_function_is_on(b.settings));
            b.run(1);
            EXPECT_TRUE(b.settings.flag(block::white_balance_finished)) << "another request, met at once";
            // Before the next frame, and under another light.
            tint(b, 0.9, 0.8);
            b.settings.set_flag(block::white_balance_finished, false);
            b.run(61);
            EXPECT_TRUE(b.settings.flag(block::white_balance_finished)) << "a third one";
            EXPECT_LT(worst_channel(b), 0.02) << red << ' ' << blue;
        }
}

// By temperature a request is five scans, whatever became of the one before it.
TEST(AutoLoops, WhatIsTakenBackBeginsAnew) {
    temperature_table table{};
    make_temperature_table({}, table);
    steered_camera b;
    b.table = &table;
    expose(b, 8000);
    enable(b, {block::white_balance_once, block::focus_request});
    b.settings.store(block::focus_max, 1000.0F);
    b.run(3);
    EXPECT_TRUE(b.settings.flag(block::focus_running));
    for (const auto at : {block::white_balance_once, block::focus_request, block::focus_running})
        b.settings.set_flag(at, false); // nothing is on any more
    (void)b.frame();
    enable(b, {block::white_balance_once, block::focus_request});
    const auto again = b.frame();
    EXPECT_TRUE(again.focus_running && again.focus_changed && again.focus_position == 0) << "from the first position";
    b.run(3);
    EXPECT_FALSE(b.settings.flag(block::white_balance_finished));
    b.run(3);
    EXPECT_TRUE(b.settings.flag(block::white_balance_finished));
}

// The gains are applied to the samples where the camera has none.
TEST(AutoLoops, WhiteBalanceInSoftware) {
    steered_camera b;
    b.balances = false;
    tint(b, 0.6, 0.9);
    enable(b, {block::white_balance_once, block::balance_in_software});
    expose(b, 8000);
    b.run(61);
    EXPECT_TRUE(b.settings.flag(block::white_balance_finished));
    EXPECT_LT(worst_channel(b, b.values().balance), 0.02);
    EXPECT_TRUE(transform_is_on(b.settings)) << "the transform applies them";
    EXPECT_FLOAT_EQ(transform_params_of(b.settings).wb_gain[0], static_cast<float>(b.values().balance[0]));
}

TEST(AutoLoops, ColourTemperatureFindsItsRow) {
    temperature_table table{};
    for (int i = 0; i < temperature_table::rows; ++i) {
        const auto t = static_cast<float>(i) / (temperature_table::rows - 1); // warm light needs blue
        table.gain[i][0] = 1 + t;
        table.gain[i][1] = 1;
        table.gain[i][2] = 2.5F - 1.5F * t;
    }
    for (const std::int32_t kelvin : {3000, 4200, 6500, 9000})
        for (const bool once : {true, false}) {
            steered_camera b;
            const float(&row)[3] = table.gain[(kelvin - 2500) / 100];
            tint(b, 1 / static_cast<double>(row[0]), 1 / static_cast<double>(row[2]));
            b.table = &table;
            enable(b, {once ? block::white_balance_once : block::auto_white_balance});
            expose(b, 8000);
            b.run(once ? 4 : 40);
            EXPECT_FALSE(b.settings.flag(block::white_balance_finished)) << "five scans";
            b.run(1);
            EXPECT_EQ(b.settings.flag(block::white_balance_finished), once);
            b.run(2);
            for (std::size_t i = 0; i < 3; ++i)
                EXPECT_NEAR(b.values().balance[i], static_cast<double>(row[i]), 0.06) << kelvin << ' ' << once;
        }
}
