// Mosaics of floats on every level.
#include "kernel_test.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

using namespace kernel_test;

TEST(FloatMosaics, BytesEndAtTheirRange) {
    const image floats(fcc("RGf0"), 3, 2, 0), bytes(fcc("RGGB"), 3, 2, 0);
    const float values[] = {0, 1, 0.5F, 2, -1, std::nanf("")};
    std::memcpy(floats.view.plane_data[0].data, values, sizeof values);
    for (const filter_table& level : levels()) {
        run(level, kernel_slot::transform_pwl_fccfloat_to_fcc8, bytes, floats);
        const std::uint8_t wanted[] = {0, 255, 128, 255, 0, 0};
        EXPECT_EQ(std::memcmp(bytes.view.plane_data[0].data, wanted, 6), 0);
    }
}

// Every phase to 8 and 16 bits, demosaiced as those are, and balanced without a limit.
TEST(FloatMosaics, BecomeSamplesAndColours) {
    const char phases[4][3][5] = {
        {"BGf0", "BA81", "BG16"}, {"GBf0", "GBRG", "GB16"}, {"BAf0", "GRBG", "BA16"}, {"RGf0", "RGGB", "RG16"}};
    const sample_params gains{{2, 1, 0.5F, 3}, 0, nullptr, nullptr};
    for (const auto& phase : phases)
        for (const std::int32_t width : {2, 5, 34, 71}) {
            const std::int32_t height = 8;
            const image from(fcc(phase[0]), width, height, 4, wall::behind);
            std::mt19937 random(3);
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x)
                    put_real(line(from.view, y) + 4 * x, static_cast<float>(random() % 1400) / 1000 - 0.2F);
            std::vector<std::uint8_t> first;
            for (const filter_table& level : levels()) {
                const image wide(fcc(phase[2]), width, height, 0), narrow(fcc(phase[1]), width, height, 0),
                    colours(fcc("RGB6"), width, height, 0), other(fcc("RGB6"), width, height, 0),
                    balanced(fcc(phase[0]), width, height, 0);
                const auto convert = [&](kernel_slot slot, const image& to, const image& source, const void* params) {
                    const kernel_fn kernel = find_kernel(level, slot, to.view, source.view);
                    ASSERT_NE(kernel, nullptr) << phase[0];
                    run(kernel, to.view, source.view, params, 0, 4);
                    run(kernel, to.view, source.view, params, 4);
                    ASSERT_TRUE(to.frame_untouched());
                };
                convert(kernel_slot::transform_pwl_fccfloat_to_fcc8, wide, from, nullptr);
                convert(kernel_slot::transform_pwl_fccfloat_to_fcc8, narrow, from, nullptr);
                convert(kernel_slot::transform_by_edge_to_dst, colours, from, nullptr);
                convert(kernel_slot::transform_by_edge_to_dst, other, wide, nullptr);
                convert(kernel_slot::apply_whitebalance, balanced, from, &gains);
                EXPECT_TRUE(colours.content() == other.content()) << phase[0] << width;
                for (int y = 0; y < height; ++y)
                    for (int x = 0; x < width; ++x) {
                        const float v = real(line(from.view, y) + 4 * x);
                        const int seen = word(line(wide.view, y) + 2 * x);
                        ASSERT_NEAR(seen, std::clamp(static_cast<double>(v), 0.0, 1.0) * 65535, 0.51);
                        ASSERT_EQ(line(narrow.view, y)[x], seen >> 8);
                        ASSERT_FLOAT_EQ(real(line(balanced.view, y) + 4 * x), v * gains.gain[y % 2 * 2 + x % 2]);
                    }
                if (first.empty()) first = colours.content();
                EXPECT_TRUE(first == colours.content()) << "level " << level[0].required_cpu;
            }
        }
}
