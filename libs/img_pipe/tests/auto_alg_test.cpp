// The automatic functions in closed loops with a model of camera and service, and what the block may do to them. Their
// order and light that changes: image_loops_test, with the simulated camera.
#include "auto_camera.h"
#include "kernel_test.h"

#include <gtest/gtest.h>
#include <img_pipe/transform_pipe.h>

#include <limits>
#include <string>

using namespace auto_test;

namespace {

constexpr double wanted = 102.0 / 255;

void expose(steered_camera& b, double us) {
    camera_values v;
    v.exposure = us;
    b.set(v);
}

void enable(steered_camera& b, std::initializer_list<block::offset> flags) {
    for (const block::offset at : flags) b.settings.set_flag(at, true);
}

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
            camera_values start;
            start.gain = row.control == block::auto_gain ? 12 : 0;
            start.iris = row.control == block::auto_iris ? (off < 1 ? 400 : 6400) : 800;
            // In the camera's reach, and such that the model's full well does not hide what gain does.
            start.exposure = 8000;
            b.light = 1;
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
    camera_values v;
    v.exposure = 8000;
    v.iris = 4000;
    b.light = b.right_exposure() / 8000 / 5 * 8; // 8 times too bright
    b.set(v);
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
        {"dark, exposure refused", 5000, 0, 0.25, [](double) { return 5000.0; }, {}},
    };
    for (const auto& row : rows) {
        steered_camera b;
        enable(b, {block::auto_exposure, block::auto_gain});
        b.settings.store(block::exposure_max, 10000.0F);
        b.settings.store(block::gain_min, row.gain > 0 ? 1.0F : 0.0F);
        if (row.takes_exposure) b.takes_exposure = row.takes_exposure;
        if (row.takes_gain) b.takes_gain = row.takes_gain;
        b.light = b.right_exposure() / 10000 * row.off;
        camera_values v;
        v.exposure = row.exposure;
        v.gain = row.gain;
        b.set(v);
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
            camera_values v;
            v.exposure = 2500;
            b->light = b->right_exposure() / 2500;
            b->set(v);
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
    const std::uint8_t* p = v.plane_data[0].data;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            float f = 0;
            if (v.format == fcc("RGf0")) std::memcpy(&f, p + 4 * (y * width + x), 4);
            const double value = v.format == fcc("RGf0") ? static_cast<double>(f) : p[y * width + x] / 255.0;
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

namespace {

// Fine texture of a mosaic's own pitch and coarser.
double texture(int x, int y, int) {
    const std::uint32_t h =
        (static_cast<std::uint32_t>(x / 2 + 1000) * 2654435761U) ^ (static_cast<std::uint32_t>(y / 2) * 2246822519U);
    return 0.2 + 0.3 * ((h >> 13) % 64) / 64.0 + 0.2 * (((x + 1000) / 24 + y / 24) % 2);
}

} // namespace

TEST(AutoFocus, FindsTheSharpestPosition) {
    struct {
        float low, high, step;
        double best, blur; // pixels of blur over the whole range
    } const rows[] = {{0, 1000, 1, 430, 60},      {0, 1000, 1, 7, 60}, {0, 1000, 10, 990, 60}, {-500, 500, 1, 3, 40},
                      {0, 65535, 16, 40000, 100}, {10, 14, 1, 12, 10}, {1000, 0, 1, 640, 60}};
    for (const auto& row : rows)
        for (const std::uint32_t format : {fcc("RGGB"), fcc("RG16")}) {
            steered_camera b;
            b.format = format;
            b.change_scene(&texture);
            b.best_focus = row.best;
            const double range = std::max(std::abs(static_cast<double>(row.high - row.low)), 1.0);
            b.blur_per_unit = row.blur / range;
            b.settings.store(block::focus_min, row.low);
            b.settings.store(block::focus_max, row.high);
            b.settings.store(block::focus_step, row.step);
            enable(b, {block::focus_request, block::auto_exposure});
            camera_values v;
            v.exposure = 8000;
            b.light = b.right_exposure() / 8000;
            b.set(v);
            int positions = 0, frames = 0;
            while (!b.settings.flag(block::focus_finished)) {
                positions += b.frame().focus_changed ? 1 : 0;
                ASSERT_LT(++frames, 600);
                EXPECT_NE(b.settings.flag(block::focus_running), b.settings.flag(block::focus_finished));
            }
            EXPECT_LE(positions, focus_most_positions);
            // As good as a third of a pixel's blur, and the lens's own step.
            const double near = std::max(0.35 / b.blur_per_unit, static_cast<double>(row.step));
            EXPECT_NEAR(static_cast<double>(b.values().focus), row.best, near) << row.high << ' ' << positions;
            const auto again = b.frame();
            EXPECT_FALSE(again.focus_running || again.focus_changed) << "one run for a request";
            b.settings.set_flag(block::focus_finished, false);
            EXPECT_TRUE(b.frame().focus_running) << "another request, another run";
            b.settings.set_flag(block::focus_request, false);
            EXPECT_FALSE(b.frame().focus_running) << "taken back";
            // As the service does it: over, the next frames without anything to measure, and asked for again.
            b.settings.set_flag(block::auto_exposure, false);
            for (int i = 0; i < 2; ++i) {
                b.settings.set_flag(block::focus_request, true);
                b.settings.set_flag(block::focus_finished, false);
                for (frames = 0; frames < 600 && !b.settings.flag(block::focus_finished); ++frames) (void)b.frame();
                EXPECT_TRUE(b.settings.flag(block::focus_finished)) << "request " << i;
                EXPECT_NEAR(static_cast<double>(b.values().focus), row.best, near);
                b.settings.set_flag(block::focus_request, false);
                for (int idle = 0; idle < 5; ++idle) (void)b.frame();
            }
        }
}

// Two things at different distances: the one in the region, or else the one in the middle.
TEST(AutoFocus, RegionOrMiddleDecides) {
    // Nothing but the right edge of the image has texture.
    for (const bool region : {true, false}) {
        steered_camera b;
        b.change_scene([](int x, int y, int c) { return x > width - 100 ? texture(x, y, c) : 0.4; });
        b.best_focus = 300;
        b.blur_per_unit = 0.06;
        b.settings.store(block::focus_max, 1000.0F);
        b.settings.store(block::focus_step, 1.0F);
        b.settings.store(block::region_left, std::int64_t{0});
        b.settings.store(block::region_width, std::int64_t{100});
        b.settings.store(block::region_height, std::int64_t{height});
        enable(b, {block::focus_request, block::region_set});
        b.settings.set_flag(block::focus_region, region);
        expose(b, 8000);
        for (int i = 0; i < 400 && !b.settings.flag(block::focus_finished); ++i) (void)b.frame();
        EXPECT_TRUE(b.settings.flag(block::focus_finished));
        EXPECT_EQ(std::abs(static_cast<double>(b.values().focus) - 300) < 10, !region) << b.values().focus;
    }
}

namespace {

std::vector<std::uint32_t> vocabulary() {
    std::vector<std::uint32_t> all;
    for (std::uint32_t i = 0; format_at(i) != 0; ++i) all.push_back(format_at(i));
    return all;
}

auto_pass_params measuring() {
    auto_pass_params p;
    p.exposure = {true, 1, 100, 50, 0, 128};
    return p;
}

} // namespace

// Middle grey in every format; sizes down to a pixel, odd ones among them.
TEST(AutoPass, EveryFormatIsMeasuredOrLeftAlone) {
    const filter_table plain = get_filter_table(cpu::c);
    for (const std::uint32_t id : vocabulary()) {
        const format_description d(id);
        const bool special = d.is_polarization != 0 || d.is_pwl != 0 || d.is_hsv != 0 || id == fcc("MJPG") ||
                             fcc_name(id).starts_with("Raw") || id == fcc("YUfp");
        for (const int w : {1, 2, 7, 64, 101})
            for (const int h : {1, 2, 9}) {
                const std::uint32_t size = image_size(id, w, h);
                std::vector<std::uint8_t> memory(size == 0 ? 1 : size, 0x80);
                const img_descriptor view = make_view(memory.data(), size, id, w, h);
                const kernel_test::image half(fcc("RAW2"), w, h, 0);
                for (std::size_t i = 0; i < half.memory.size - half.front; ++i)
                    half.memory.bytes[half.front + i] = i % 2 == 0 ? 0 : 0x80;
                if (const kernel_fn pack = find_kernel(plain, kernel_slot::convert_lines, view, half.view);
                    pack != nullptr && size != 0)
                    kernel_test::run(pack, view, half.view, nullptr);
                if (d.is_float != 0)
                    for (std::size_t i = 0; i + 4 <= memory.size(); i += 4) {
                        const float middle = 0.5F;
                        std::memcpy(&memory[i], &middle, 4);
                    }
                auto_alg_state state;
                const auto r = auto_pass(state, view, measuring());
                const bool mosaic =
                    d.is_mono == 0 && d.is_yuv == 0 && id != fcc("BGR3") && id != fcc("BGR4") && id != fcc("RGB6");
                // The colours of its odd lines take more than its bytes.
                const bool too_long = id == fcc("NV12") && w % 2 != 0 && h % 4 == 2;
                const bool measured = size != 0 && !special && !too_long && (!mosaic || (w > 1 && h > 1));
                // A packed line may end inside its last sample, and a group of chroma with it.
                if (!measured) {
                    EXPECT_EQ(r.brightness, -1) << fcc_name(id) << w << 'x' << h;
                } else if (w >= 64) {
                    EXPECT_NEAR(r.brightness, 0.5, 0.02) << fcc_name(id) << w << 'x' << h;
                }
            }
    }
}

// What is measured is what the transform leaves to see, format by format.
TEST(AutoPass, ThePictureBehindTheTransformIsMeasured) {
    steered_camera b;
    enable(b, {block::auto_exposure, block::balance_in_software, block::color_matrix_enable});
    b.settings.store(block::balance_red, 2.0F);
    b.settings.store(block::balance_blue, 1.6F);
    b.settings.store(block::color_matrix, 0.8F);
    b.settings.store(block::color_matrix + 16, 0.9F);
    b.settings.store(block::brightness, std::int32_t{20});
    b.settings.store(block::gamma, 0.8F);
    int seen = 0;
    for (const std::uint32_t id : vocabulary()) {
        const std::uint32_t size = image_size(id, 64, 16);
        std::vector<std::uint8_t> memory(std::max(size, 1U), 0x50);
        if (format_description(id).is_float != 0) {
            const float level = 0.25F;
            for (std::size_t i = 0; i + 4 <= memory.size(); i += 4) std::memcpy(&memory[i], &level, 4);
        }
        const img_descriptor view = make_view(memory.data(), size, id, 64, 16);
        auto_alg_state before, after;
        const auto measured = run_auto_pass(b.settings, before, view, 1, 1, b);
        if (measured.brightness < 0) continue;
        transform_pipe pipe;
        seen += pipe.transform_in_place(view, transform_params_of(b.settings)) ? 1 : 0;
        EXPECT_NEAR(measured.brightness, auto_pass(after, view, measuring()).brightness, 0.02) << fcc_name(id);
    }
    EXPECT_GT(seen, 30) << "are transformed";
}

TEST(AutoPass, FocusOfWhatCannotBeMeasuredOrMovedEndsWithoutAMove) {
    std::vector<std::uint8_t> memory(256 * 256 * 3, 60);
    auto_alg_state state;
    auto_pass_params p;
    p.focus = {true, 7, 0, 100, 1, false};
    const auto r = auto_pass(state, make_view(memory.data(), 256 * 256 * 3, fcc("HSV3"), 256, 256), p);
    EXPECT_TRUE(r.focus_done && !r.focus_changed && !r.focus_running);
    // Of a range that nobody knows, or that is shorter than the lens's step, there is nothing to search.
    for (const float high : {0.0F, 9.0F}) {
        p.focus = {true, 7, 0, high, 10, false};
        const auto none = auto_pass(state, make_view(memory.data(), 256 * 256, fcc("Y800"), 256, 256), p);
        EXPECT_TRUE(none.focus_done && !none.focus_changed && !none.focus_running) << high;
    }
    for (const int w : {0, -5}) {
        p = measuring();
        p.block_id = 100;
        p.focus.request = true;
        img_descriptor bad = make_view(memory.data(), 256 * 256, fcc("RGGB"), 256, 256);
        bad.width = bad.height = w;
        EXPECT_EQ(auto_pass(state, bad, p).brightness, -1) << "no image";
    }
}

TEST(AutoPass, PacesItself) {
    std::vector<std::uint8_t> memory(64 * 64, 60);
    const img_descriptor image = make_view(memory.data(), 64 * 64, fcc("Y800"), 64, 64);
    constexpr std::uint64_t ms = 1000000;
    struct {
        std::uint64_t block, time;
        bool measures;
        const char* why;
    } const rows[] = {
        {10, 1000 * ms, true, "the first"},      {11, 1033 * ms, false, "too soon"},
        {12, 1066 * ms, false, "two frames on"}, {13, 1100 * ms, true, "the third"},
        {14, 1150 * ms, false, "one frame on"},  {15, 1301 * ms, true, "long ago"},
        {99, 1340 * ms, false, "too soon"},      {99, 1301 * ms, true, "the same time"},
        {3, 1302 * ms, true, "ids began anew"},  {4, 900 * ms, true, "time went back"},
        {80, 940 * ms, false, "too soon"},       {81, 950 * ms, true, "many frames on"},
    };
    auto_alg_state state;
    for (const auto& row : rows) {
        auto_pass_params p = measuring();
        p.block_id = row.block;
        p.time_ns = row.time;
        EXPECT_EQ(auto_pass(state, image, p).brightness >= 0, row.measures) << row.why;
    }
    auto_alg_state idle;
    EXPECT_EQ(auto_pass(idle, image, auto_pass_params{}).brightness, -1) << "no function";
}

// A camera's gains lie between the steps; what is grey is left alone, or each pass would write them anew.
TEST(AutoPass, GreyKeepsTheCamerasGains) {
    std::vector<std::uint8_t> memory(64 * 64 * 4, 100);
    const float half = 0.5F;
    for (const auto id : {fcc("RGGB"), fcc("RGf0")}) {
        if (id == fcc("RGf0"))
            for (std::size_t i = 0; i < memory.size(); i += 4) std::memcpy(&memory[i], &half, 4);
        auto_alg_state state;
        auto_pass_params p;
        p.white_balance.continuous = true;
        p.white_balance.gain[0] = 1.37F;
        p.white_balance.gain[2] = 2.01F;
        const auto r = auto_pass(state, make_view(memory.data(), image_size(id, 64, 64), id, 64, 64), p);
        EXPECT_FALSE(r.wb_changed) << r.wb_r << ' ' << r.wb_g << ' ' << r.wb_b;
    }
}

// Whatever the block says, results are within its limits, or as they were.
TEST(AutoPass, AnyBlockGivesBoundedResults) {
    std::mt19937_64 random(5);
    const float odd[] = {std::numeric_limits<float>::quiet_NaN(),
                         std::numeric_limits<float>::infinity(),
                         -std::numeric_limits<float>::infinity(),
                         0,
                         -1,
                         1e-40F,
                         3e38F,
                         -3e38F,
                         1,
                         4e9F};
    steered_camera b;
    camera_values v;
    b.set(v);
    (void)b.frame();
    const img_descriptor image = b.picture();
    struct : IAutoValuesSender {
        void send_write_auto_values_cmd() override {}
    } nobody;
    for (int i = 0; i < 4000; ++i) {
        auto_alg_state fresh;
        block_temperatures temperatures;
        for (std::size_t at = 0; at < block::full_size; at += 4) {
            const std::uint64_t r = random();
            if (r % 3 == 0)
                b.settings.store(at, odd[r / 8 % std::size(odd)]);
            else if (r % 3 == 1)
                b.settings.store(at, static_cast<std::uint32_t>(r >> 32));
            else
                b.settings.store(at, static_cast<std::uint32_t>(r >> 62));
        }
        // Changes while it is read show as another random block.
        for (std::uint64_t frame = 0; frame < 3; ++frame) {
            const auto before = auto_params_of(b.settings, frame, 0);
            const auto r = run_auto_pass(b.settings, fresh, image, frame, 0, nobody, temperatures.table_of(b.settings));
            if (r.exposure_changed) {
                const double low = std::min(before.exposure.min, before.exposure.max);
                const double high = std::max(before.exposure.min, before.exposure.max);
                EXPECT_GE(r.exposure, low);
                EXPECT_LE(r.exposure, high);
            }
            if (r.gain_changed) {
                EXPECT_TRUE(r.gain >= std::min(before.gain.min, before.gain.max) &&
                            r.gain <= std::max(before.gain.min, before.gain.max));
            }
            if (r.iris_changed) {
                EXPECT_GE(r.iris, std::min(before.iris.min, before.iris.max));
                EXPECT_LE(r.iris, std::max(before.iris.min, before.iris.max));
            }
            for (const float gain : {r.wb_r, r.wb_g, r.wb_b}) EXPECT_TRUE(gain >= 0 && gain <= 4);
            EXPECT_TRUE(r.temperature == -1 || (r.temperature >= 2500 && r.temperature <= 10000)) << r.temperature;
            const auto t = transform_params_of(b.settings);
            EXPECT_TRUE(std::isfinite(t.gamma) && std::isfinite(t.hue) && std::isfinite(t.wb_gain[0]));
        }
    }
}

TEST(AutoPass, NeutralBlockAsksForNothing) {
    steered_camera b;
    EXPECT_FALSE(auto_function_is_on(b.settings));
    EXPECT_FALSE(transform_is_on(b.settings));
    for (const auto at : {block::auto_exposure, block::auto_gain, block::auto_iris, block::auto_white_balance,
                          block::white_balance_once, block::focus_request}) {
        b.settings.set_flag(at, true);
        EXPECT_TRUE(auto_function_is_on(b.settings)) << at;
        b.settings.set_flag(at, false);
    }
    struct {
        block::offset at;
        float value;
    } const rows[] = {{block::gamma, 1.2F}, {block::saturation, 90}, {block::hue, 10}};
    for (const auto& [at, value] : rows) {
        b.settings.set_neutral();
        b.settings.store(at, value);
        EXPECT_TRUE(transform_is_on(b.settings)) << at;
    }
    b.settings.set_neutral();
    b.settings.set_flag(block::tonemapping_enable, true);
    EXPECT_TRUE(transform_is_on(b.settings));
}
