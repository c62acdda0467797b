// Companded images on every level, against the curve's own formula.
#include "kernel_test.h"

#include <img_pipe/transform_pipe.h>

#include <gtest/gtest.h>

#include <cmath>

using namespace kernel_test;

namespace {

// The 12-bit code of pixel (x, y).
int code_at(const img_descriptor& v, int x, int y) {
    const std::uint8_t* p = v.plane_data[0].data + y * v.plane_data[0].stride + x / 2 * 3;
    const int odd = x % 2;
    if (v.format == fcc("PWL1")) return p[odd] << 4 | (p[2] >> (odd * 4) & 15);
    if (v.format == fcc("PWL2")) return p[odd * 2] << 4 | (p[1] >> (odd * 4) & 15);
    return (p[odd] | p[odd + 1] << 8) >> (odd * 4) & 0xFFF; // PWL3
}

} // namespace

TEST(Companded, BecomesLinear) {
    const auto linear = [](int code) {
        const double at[] = {0, 1024, 17408, 148480, 1048575};
        const int i = std::min(code / 1024, 3);
        return (at[i] + (at[i + 1] - at[i]) * (code - 1024 * i) / (i == 3 ? 1023 : 1024)) / 1048575;
    };
    const char names[][5] = {"PWL1", "PWL2", "PWL3"};
    for (const char(&in)[5] : names)
        for (const int w : {2, 4, 6, 10, 34, 66, 132}) {
            const int h = 9;
            const image from(fcc(in), w, h, 0), to(fcc("RGf0"), w, h, 3);
            from.noise(41);
            on_each_level(kernel_slot::convert_lines, to, from, nullptr, [&] {
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w; ++x) {
                        float v = 0;
                        std::memcpy(&v, to.view.plane_data[0].data + y * to.view.plane_data[0].stride + 4 * x, 4);
                        ASSERT_FLOAT_EQ(v, static_cast<float>(linear(code_at(from.view, x, y)))) << in;
                    }
            });
        }
}

// The picture of a companded mosaic shows square roots of linear values; at each site its own colour. Gains are those
// of the linear values.
TEST(Companded, ShowsSquareRoots) {
    const char names[][5] = {"PWL1", "PWL2", "PWL3"};
    for (const char(&in)[5] : names)
        for (const float red : {1.0F, 4.0F}) {
            const image from(fcc(in), 34, 9, 0), to(fcc("BGR4"), 34, 9, 0), linear(fcc("RGf0"), 34, 9, 0);
            from.noise(8);
            transform_params params;
            params.wb_enable = true;
            params.wb_gain[0] = red;
            transform_pipe pipe;
            ASSERT_TRUE(pipe.transform(to.view, from.view, params));
            ASSERT_TRUE(pipe.transform(linear.view, from.view, params));
            for (int y = 0; y < 9; ++y)
                for (int x = 0; x < 34; ++x) {
                    float v = 0;
                    std::memcpy(&v, linear.view.plane_data[0].data + (y * 34 + x) * 4, 4);
                    const int channel = 2 - (x & 1) - (y & 1);
                    ASSERT_NEAR(to.view.plane_data[0].data[(y * 34 + x) * 4 + channel],
                                std::lround(std::sqrt(std::min(1.0, static_cast<double>(v))) * 65535) / 256,
                                red == 1 ? 0 : 1)
                        << in << ' ' << x << ',' << y << " gain " << red;
                }
        }
}
