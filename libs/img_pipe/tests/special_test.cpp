// Polarisation and companded images on every level, against formulas in double precision.
#include "kernel_test.h"

#include <img_pipe/transform_pipe.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <numbers>
#include <random>

using namespace kernel_test;

namespace {

// Sample (x, y) of a source, its bits at the top of 16; 8 bits twice.
unsigned raw(const img_descriptor& v, int x, int y) {
    const std::uint8_t* p = v.plane_data[0].data + y * v.plane_data[0].stride;
    const auto byte = [&](int i) { return static_cast<unsigned>(p[i]); };
    const int pair = x / 2 * 3;
    const std::uint32_t f = v.format;
    if (f == fcc("P180") || f == fcc("P280")) return byte(x) * 257;
    if (f == fcc("P116") || f == fcc("P216")) return byte(2 * x) | byte(2 * x + 1) << 8;
    if (f == fcc("P1CP") || f == fcc("PWL2"))
        return byte(pair + x % 2 * 2) << 8 | (byte(pair + 1) >> (x % 2 * 4) & 15) << 4;
    if (f == fcc("PWL1")) return byte(pair + x % 2) << 8 | (byte(pair + 2) >> (x % 2 * 4) & 15) << 4;
    return ((byte(pair + x % 2) | byte(pair + x % 2 + 1) << 8) >> (x % 2 * 4) & 0xFFF) << 4; // P2Cp, PWL3
}

// Every level gives the same; the first what `check` wants.
void each_level(const char (&in)[5], const char (&out)[5], int width, int height, int out_width, int out_height,
                const std::function<void(const img_descriptor& to, const img_descriptor& from)>& check) {
    const image from(fcc(in), width, height, 0), to(fcc(out), out_width, out_height, 3);
    from.noise(41);
    on_each_level(kernel_slot::convert_lines, to, from, nullptr, [&] { check(to.view, from.view); });
}

struct stokes {
    double angle, degree, intensity; // in half turns; of 1; of 65535
    std::array<double, 4> samples;   // 90, 45, 135, 0
};
stokes cell(const img_descriptor& v, int cx, int cy) {
    const double a = raw(v, 2 * cx, 2 * cy), b = raw(v, 2 * cx + 1, 2 * cy), c = raw(v, 2 * cx, 2 * cy + 1),
                 d = raw(v, 2 * cx + 1, 2 * cy + 1);
    const double sum = (a + b + c + d) / 2;
    double angle = std::atan2(b - c, d - a) / (2 * std::numbers::pi);
    if (angle < 0) angle += 1;
    return {angle, sum == 0 ? 0 : std::min(1.0, std::hypot(d - a, b - c) / sum), sum / 2, {a, b, c, d}};
}

const int mosaic_sizes[][2] = {{2, 2}, {4, 4}, {6, 5}, {10, 8}, {34, 7}, {66, 9}, {132, 4}};

} // namespace

TEST(Special, Polarisation) {
    struct {
        const char (&in)[5], (&out)[5];
    } const rows[] = {{"P180", "ADI1"}, {"P280", "ADC1"}, {"P180", "PPM1"}, {"P280", "PPB1"},
                      {"P180", "BGR4"}, {"P280", "BGR4"}, {"P116", "ADI2"}, {"P216", "ADC2"},
                      {"P1CP", "ADI2"}, {"P2Cp", "ADC2"}, {"P116", "PPM2"}, {"P2Cp", "PPB2"}};
    for (const auto& row : rows)
        for (const auto& size : mosaic_sizes)
            for (const int part : {1, 2}) // as large as the source, and of half its size
                each_level(
                    row.in, row.out, size[0], size[1], size[0] / part, size[1] / part,
                    [&](const img_descriptor& to, const img_descriptor& from) {
                        const int cells_x = from.width / 2, cells_y = from.height / 2;
                        const bool wide = row.out[3] == '2', view = fcc(row.out) == fcc("BGR4"),
                                   packed = row.out[0] == 'P';
                        for (int y = 0; y < to.height; ++y)
                            for (int x = 0; x < to.width; ++x) {
                                const int cx = std::min(part == 1 ? x / 2 : x, cells_x - 1),
                                          cy = std::min(part == 1 ? y / 2 : y, cells_y - 1);
                                const stokes s = cell(from, cx, cy);
                                std::vector<double> want{s.angle * 65536, s.degree * 65535, s.intensity, 0};
                                if (packed) want.assign(s.samples.begin(), s.samples.end());
                                if (row.out[2] == 'C') {
                                    const int bx = std::min(cx / 2, cells_x / 2 - 1) * 2,
                                              by = std::min(cy / 2, cells_y / 2 - 1) * 2;
                                    const bool block = cells_x > 1 && cells_y > 1;
                                    const auto grey = [&](int dx, int dy) {
                                        return block ? cell(from, bx + dx, by + dy).intensity : s.intensity;
                                    };
                                    want.insert(want.end(), {grey(0, 0), (grey(1, 0) + grey(0, 1)) / 2, grey(1, 1), 0});
                                }
                                if (view) {
                                    want.clear();
                                    for (const int n : {1, 3, 5}) {
                                        const double k = std::fmod(n + 6 * s.angle, 6);
                                        want.push_back(s.intensity *
                                                       (1 - s.degree * std::clamp(std::min(k, 4 - k), 0.0, 1.0)));
                                    }
                                    want.push_back(65535);
                                }
                                const std::uint8_t* p = to.plane_data[0].data + y * to.plane_data[0].stride +
                                                        static_cast<std::size_t>(x) * want.size() * (wide ? 2 : 1);
                                for (std::size_t i = 0; i < want.size(); ++i) {
                                    const double scale = wide ? 1 : i == 0 && !packed && !view ? 256 : 257;
                                    const double value = wide ? p[2 * i] | p[2 * i + 1] << 8 : p[i];
                                    double off = std::abs(value - want[i] / scale);
                                    if (i == 0 && !packed && !view) off = std::min(off, (wide ? 65536 : 256) - off);
                                    ASSERT_LE(off, wide ? 1.1 : 0.52 + (view ? 0.5 : 0))
                                        << row.in << " to " << row.out << " sample " << i << " at " << x << ',' << y
                                        << " of " << from.width << 'x' << from.height;
                                }
                            }
                    });
}

TEST(Special, CompandedToFloatAndBack) {
    const auto linear = [](int code) {
        const double at[] = {0, 1024, 17408, 148480, 1048575};
        const int i = std::min(code / 1024, 3);
        return (at[i] + (at[i + 1] - at[i]) * (code - 1024 * i) / (i == 3 ? 1023 : 1024)) / 1048575;
    };
    const char names[][5] = {"PWL1", "PWL2", "PWL3"};
    for (const char(&in)[5] : names)
        for (const auto& size : mosaic_sizes) {
            const int w = size[0], h = size[1];
            each_level(in, "RGf0", w, h, w, h, [&](const img_descriptor& to, const img_descriptor& from) {
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w; ++x) {
                        float v = 0;
                        std::memcpy(&v, to.plane_data[0].data + y * to.plane_data[0].stride + 4 * x, 4);
                        ASSERT_FLOAT_EQ(v, static_cast<float>(linear(static_cast<int>(raw(from, x, y) >> 4)))) << in;
                    }
            });
        }
    const image floats(fcc("RGf0"), 3, 2, 0), bytes(fcc("RGGB"), 3, 2, 0);
    const float values[] = {0, 1, 0.5F, 2, -1, std::nanf("")};
    std::memcpy(floats.view.plane_data[0].data, values, sizeof values);
    for (const filter_table& level : levels()) {
        run(find_kernel(level, kernel_slot::transform_pwl_fccfloat_to_fcc8, bytes.view, floats.view), bytes.view,
            floats.view, nullptr);
        const std::uint8_t wanted[] = {0, 255, 128, 255, 0, 0};
        EXPECT_EQ(std::memcmp(bytes.view.plane_data[0].data, wanted, 6), 0);
    }
}

// The picture of a companded mosaic shows square roots of linear values; at each site its own colour. Gains are those
// of the linear values.
TEST(Special, CompandedToAPicture) {
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

// Mosaics of floats: every phase to 8 and 16 bits, demosaiced as those are, and balanced without a limit.
TEST(Special, FloatMosaics) {
    const char phases[4][3][5] = {
        {"BGf0", "BA81", "BG16"}, {"GBf0", "GBRG", "GB16"}, {"BAf0", "GRBG", "BA16"}, {"RGf0", "RGGB", "RG16"}};
    const sample_params gains{{2, 1, 0.5F, 3}, 0, nullptr, nullptr};
    for (const auto& phase : phases)
        for (const std::int32_t width : {2, 5, 34, 71}) {
            const std::int32_t height = 8;
            const image from(fcc(phase[0]), width, height, 4, wall::behind);
            std::mt19937 random(3);
            const auto value = [&](const image& of, int x, int y) {
                float v = 0;
                std::memcpy(&v, of.view.plane_data[0].data + y * of.view.plane_data[0].stride + 4 * x, 4);
                return v;
            };
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x) {
                    const float v = static_cast<float>(random() % 1400) / 1000 - 0.2F;
                    std::memcpy(from.view.plane_data[0].data + y * from.view.plane_data[0].stride + 4 * x, &v, 4);
                }
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
                        const std::uint8_t* p = wide.view.plane_data[0].data + (y * width + x) * 2;
                        const double want = std::clamp(static_cast<double>(value(from, x, y)), 0.0, 1.0) * 65535;
                        ASSERT_NEAR(p[0] | p[1] << 8, want, 0.51);
                        ASSERT_EQ(narrow.view.plane_data[0].data[y * width + x], p[1]);
                        ASSERT_FLOAT_EQ(value(balanced, x, y), value(from, x, y) * gains.gain[y % 2 * 2 + x % 2]);
                    }
                if (first.empty()) first = colours.content();
                EXPECT_TRUE(first == colours.content()) << "level " << level[0].required_cpu;
            }
        }
}

TEST(Special, SmoothingIsTheMeanOfTwoByTwo) {
    for (const std::int32_t width : {1, 2, 3, 16, 17, 18, 33, 70})
        for (const std::int32_t height : {1, 2, 9}) {
            const image from(fcc("Y800"), width, height, 3), to(fcc("Y800"), width, height, 1);
            from.noise(6);
            const auto at = [&](int x, int y) {
                return from.view.plane_data[0]
                    .data[std::min(y, height - 1) * from.view.plane_data[0].stride + std::min(x, width - 1)];
            };
            on_each_level(kernel_slot::apply_2x2_smooth_y8, to, from, nullptr, [&] {
                for (int y = 0; y < height; ++y)
                    for (int x = 0; x < width; ++x)
                        ASSERT_EQ(to.view.plane_data[0].data[y * to.view.plane_data[0].stride + x],
                                  (at(x, y) + at(x + 1, y) + at(x, y + 1) + at(x + 1, y + 1) + 2) / 4)
                            << width << 'x' << height << " at " << x << ',' << y;
            });
        }
}
