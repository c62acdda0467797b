// The scene's picture against the physics that it is made of.
#include "../src/optics.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace camera_sim;

namespace {

constexpr uint32_t mono8 = 0x01080001, bayer_rg8 = 0x01080009, size = 256;
constexpr double black = 2;

struct view {
    double mean[4] = {};  // of the sites of the 2 x 2 cells, counts of 255 above black
    double roughness = 0; // mean square of differences two pixels apart
    double highest = 0;
};

view look(const camera_options& options, const sensor_settings& now, uint64_t frame = 0, double seconds = 0) {
    optics camera{options};
    std::vector<std::byte> picture(size * size);
    camera.expose(frame, seconds, now, picture);
    view seen;
    for (uint32_t y = 0; y < size; ++y)
        for (uint32_t x = 0; x < size; ++x) {
            const double v = std::to_integer<int>(picture[y * size + x]);
            seen.mean[(y & 1) * 2 + (x & 1)] += (v - black) / (size * size / 4.0);
            seen.highest = std::max(seen.highest, v);
            if (x < 2) continue;
            const double d = v - std::to_integer<int>(picture[y * size + x - 2]);
            seen.roughness += d * d / (size * size);
        }
    return seen;
}

camera_options options_of(scene_options scene) {
    camera_options options;
    options.sensor_width = options.sensor_height = size;
    options.scene = std::move(scene);
    options.scene.what = scene_kind::grey;
    return options;
}

sensor_settings settings_of(uint32_t format = mono8) {
    return {size, size, 0, 0, format, 5000, {}, {1, 1, 1}, 0, 800, 430};
}

} // namespace

TEST(Optics, LightIsMultiplied) {
    const double plain = look(options_of({}), settings_of()).mean[0];
    EXPECT_NEAR(plain, 0.2 * 255, 2) << "half of the start's exposure";
    struct {
        const char* why;
        double level, exposure, gain;
        uint32_t iris;
        double factor;
    } const rows[] = {{"exposure", 1, 10000, 0, 800, 2},
                      {"iris", 1, 5000, 0, 1600, 2},
                      {"light", 2, 5000, 0, 800, 2},
                      {"6.02 dB", 1, 5000, 6.0206, 800, 2},
                      {"less of all", 0.5, 2500, 6.0206, 1600, 1}};
    for (const auto& row : rows) {
        sensor_settings now = settings_of();
        now.exposure = row.exposure;
        now.iris = row.iris;
        now.gain.fill(row.gain);
        EXPECT_NEAR(look(options_of({.light = {{0, row.level, 1, 1}}}), now).mean[0] / plain, row.factor, 0.05)
            << row.why;
    }
    sensor_settings full = settings_of();
    full.exposure = 1e6;
    full.balance = {1, 0.5, 1};
    EXPECT_NEAR(look(options_of({}), full).highest, black + 127, 1) << "a well that is full has no more to give";
}

TEST(Optics, TintAndBalanceActOnTheirColours) {
    const auto options = options_of({.light = {{3, 1, 0.5, 2}}});
    sensor_settings now = settings_of(bayer_rg8);
    now.balance = {2, 1, 0.5};
    const view before = look(options, now, 2), tinted = look(options, now, 3);
    EXPECT_NEAR(before.mean[0] / before.mean[1], 2, 0.1);
    EXPECT_NEAR(before.mean[3] / before.mean[1], 0.5, 0.05);
    EXPECT_NEAR(tinted.mean[0] / tinted.mean[1], 1, 0.05);
    EXPECT_NEAR(tinted.mean[3] / tinted.mean[2], 1, 0.05);
}

TEST(Optics, SharpestAtItsPosition) {
    double last = 1e9;
    for (const uint32_t off : {0U, 40U, 120U, 400U}) {
        sensor_settings now = settings_of();
        now.focus = 430 + off;
        const double roughness = look(options_of({}), now).roughness;
        EXPECT_LT(roughness, last * 0.95) << off;
        last = roughness;
        now.focus = 430 - off;
        EXPECT_NEAR(look(options_of({}), now).roughness / roughness, 1, 0.01);
    }
}

TEST(Optics, ALampsPeriodLevelsItsFlicker) {
    scene_options lamp;
    lamp.flicker = 0.5;
    const auto options = options_of(lamp);
    sensor_settings now = settings_of();
    now.exposure = 10000;
    EXPECT_NEAR(look(options, now, 0, 0).mean[0] / look(options, now, 0, 0.004).mean[0], 1, 0.02);
    now.exposure = 500;
    EXPECT_NEAR(look(options, now, 0, 0.00225).mean[0] / look(options, now, 0, 0.00725).mean[0], 3, 0.4);
}
