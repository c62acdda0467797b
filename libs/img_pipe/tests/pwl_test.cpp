// Companded images on every level, against the curve's own formula.
#include "kernel_test.h"

#include <img_pipe/transform_pipe.h>

#include <gtest/gtest.h>

#include <cmath>

using namespace kernel_test;

static const char companded[][5] = {"PWL1", "PWL2", "PWL3"};

TEST(Companded, BecomesLinear) {
    const auto linear = [](unsigned code) {
        const double at[] = {0, 1024, 17408, 148480, 1048575};
        const unsigned i = std::min(code / 1024, 3U);
        return static_cast<float>((at[i] + (at[i + 1] - at[i]) * (code - 1024 * i) / (i == 3 ? 1023 : 1024)) / 1048575);
    };
    for (const char(&in)[5] : companded)
        for (const int w : {2, 4, 6, 10, 34, 66, 132}) {
            const int h = 9;
            const bit_packing code = bit_packing_of(fcc(in));
            const image from(fcc(in), w, h, 0), to(fcc("RGf0"), w, h, 3);
            from.noise(41);
            on_each_level(kernel_slot::convert_lines, to, from, nullptr, [&] {
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w; ++x)
                        ASSERT_FLOAT_EQ(real(line(to.view, y) + 4 * x),
                                        linear(code.get(line(from.view, y), static_cast<std::size_t>(x))))
                            << in;
            });
        }
}

// The picture of a companded mosaic shows square roots of linear values; at each site its own colour. Gains are those
// of the linear values.
TEST(Companded, ShowsSquareRoots) {
    for (const char(&in)[5] : companded)
        for (const float red : {1.0F, 4.0F}) {
            const image from(fcc(in), 34, 9, 0), to(fcc("BGR4"), 34, 9, 0), linear(fcc("RGf0"), 34, 9, 0);
            from.noise(8);
            const transform_params params{.wb_enable = true, .wb_gain = {red, 1, 1, 1}};
            transform_pipe pipe;
            ASSERT_TRUE(pipe.transform(to.view, from.view, params));
            ASSERT_TRUE(pipe.transform(linear.view, from.view, params));
            for (int y = 0; y < 9; ++y)
                for (int x = 0; x < 34; ++x) {
                    const double v = std::min(1.0, static_cast<double>(real(line(linear.view, y) + 4 * x)));
                    ASSERT_NEAR(line(to.view, y)[4 * x + 2 - x % 2 - y % 2], std::lround(std::sqrt(v) * 65535) / 256,
                                red == 1 ? 0 : 1)
                        << in << ' ' << x << ',' << y << " gain " << red;
                }
        }
}
