// The lens finds its place, in a loop with a model of camera and service.
#include "auto_camera.h"

#include <gtest/gtest.h>

using namespace auto_test;

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
            b.light = b.right_exposure() / 8000;
            expose(b, 8000);
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
