// Demosaicing: plain surfaces keep their value, and large pictures are as small ones.
#include "../src/transform/parameters.h"
#include "../src/transform/transform_state.h"
#include "kernel_test.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace kernel_test;

namespace {

constexpr std::uint32_t bayer8[] = {fcc("BA81"), fcc("GBRG"), fcc("GRBG"), fcc("RGGB")};
} // namespace

// Large pictures are written past the caches, which asks for aligned lines: aligned or not, the result is that of small
// strips of the same lines.
TEST(Demosaic, LargePicturesAreAsSmallOnes) {
    const std::int32_t width = 8192 + 130, height = 260, shown = 20;
    const struct {
        std::uint32_t from, to;
        std::int32_t pixel_bytes, pad;
    } rows[] = {{fcc("GRBG"), fcc("BGR4"), 4, 16 - 8322 * 4 % 16},
                {fcc("GRBG"), fcc("BGR4"), 4, 5},
                {fcc("BA16"), fcc("RGB6"), 8, 0},
                {fcc("BA16"), fcc("RGB6"), 8, 6}};
    for (const auto& row : rows) {
        const std::int32_t pad = row.pad;
        const image from(row.from, width, height, 0), large(row.to, width, height, pad);
        from.noise(7);
        const image few(row.from, width, shown, 0), small(row.to, width, shown, pad);
        std::memcpy(few.memory.bytes, from.memory.bytes, few.memory.size);
        const auto convert = [&](const filter_table& level, const image& to, const image& source) {
            run(find_kernel(level, kernel_slot::transform_by_edge_to_dst, to.view, source.view), to.view, source.view,
                nullptr);
        };
        const auto all = levels();
        convert(all.back(), small, few);
        for (const filter_table& level : all) {
            if (level[0].required_cpu == cpu::c) continue; // writes nothing past the caches
            convert(level, large, from);
            ASSERT_TRUE(large.frame_untouched());
            for (std::int32_t y = 0; y < shown - 5; ++y)
                ASSERT_EQ(std::memcmp(large.view.plane_data[0].data + y * large.view.plane_data[0].stride,
                                      small.view.plane_data[0].data + y * small.view.plane_data[0].stride,
                                      static_cast<std::size_t>(width) * static_cast<std::size_t>(row.pixel_bytes)),
                          0)
                    << "line " << y << " level " << level[0].required_cpu << " pad " << pad;
        }
    }
}

// One colour all over, and a slope that is equal in all channels.
TEST(Demosaic, SurfacesKeepTheirColour) {
    const std::int32_t width = 70, height = 22;
    const struct {
        int b, g, r, slope;
    } rows[] = {{0, 0, 0, 0}, {255, 255, 255, 0}, {77, 77, 77, 0}, {10, 120, 240, 0}, {255, 0, 0, 0}, {5, 5, 5, 2}};
    for (const filter_table& level : levels())
        for (const auto& row : rows)
            for (std::size_t phase = 0; phase < 4; ++phase) {
                const image from(bayer8[phase], width, height, 0), to(fcc("BGR4"), width, height, 0);
                const auto value = [&](int channel, std::int32_t x, std::int32_t y) {
                    return (channel == 0 ? row.b : channel == 1 ? row.g : row.r) + row.slope * (x + y);
                };
                for (std::int32_t y = 0; y < height; ++y)
                    for (std::int32_t x = 0; x < width; ++x) {
                        const bool blue_first = phase == 0 || phase == 1, green_first = phase == 1 || phase == 2;
                        const bool green = ((x + y) % 2 == 0) == green_first;
                        const int channel = green ? 1 : (y % 2 == 0) == blue_first ? 0 : 2;
                        from.view.plane_data[0].data[y * width + x] = static_cast<std::uint8_t>(value(channel, x, y));
                    }
                run(find_kernel(level, kernel_slot::transform_by_matrix_to_dst, to.view, from.view), to.view, from.view,
                    nullptr);
                const std::int32_t edge = row.slope == 0 ? 0 : 6;
                for (std::int32_t y = edge; y < height - edge; ++y)
                    for (std::int32_t x = edge; x < width - edge; ++x)
                        for (int c = 0; c < 4; ++c)
                            ASSERT_EQ(to.view.plane_data[0].data[(y * width + x) * 4 + c],
                                      c == 3 ? 255 : value(c, x, y))
                                << "phase " << phase << " at " << x << ',' << y << " channel " << c << " level "
                                << level[0].required_cpu;
            }
}

namespace {

// A picture of one colour, R, G, B, in an RGGB mosaic of bytes or words of 257 times the value.
void fill_with(const image& mosaic, bool words, const int (&rgb)[3]) {
    for (std::int32_t y = 0; y < mosaic.view.height; ++y)
        for (std::int32_t x = 0; x < mosaic.view.width; ++x) {
            const auto v = static_cast<std::uint8_t>(rgb[x % 2 + y % 2]);
            std::uint8_t* at = mosaic.view.plane_data[0].data + (y * mosaic.view.width + x) * (words ? 2 : 1);
            at[0] = v;
            if (words) at[1] = v;
        }
}

} // namespace

// Gentle, strong and inverting matrices with and without an offset, then gamma, on colours whose result is known. Bytes
// are rounded between the two, words cut to bytes at the end, and fixed point is as fine as the matrix is gentle. Black
// and white stay where they must.
TEST(Demosaic, MatrixAndGammaAreTheirOwn) {
    const matrix_params matrices[] = {{{{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}}},
                                      {{{1.6F, -0.4F, -0.2F, 0}, {-0.3F, 1.5F, -0.2F, 0}, {0, -0.5F, 1.5F, 0}}},
                                      {{{0.2F, 0.3F, 0.1F, 0.25F}, {-1, 0, 0, 1}, {0.7F, 0.2F, 0.1F, -0.1F}}},
                                      {{{9, -3, -5, 0}, {-16, 15, 2, 0.3F}, {0, -1.5F, 4, -2}}},
                                      {{{60, -30, -29, 0}, {1, 100, -100, 0}, {0, 0, 20, -9.5F}}}};
    const int colours[][3] = {{0, 0, 0},    {255, 255, 255}, {1, 2, 3},    {200, 40, 90},
                              {7, 250, 13}, {128, 127, 126}, {31, 30, 32}, {0, 255, 0}};
    for (const bool words : {false, true})
        for (const double gamma : {1.0, 0.5, 0.3, 2.2, 3.0, 6.0})
            for (const matrix_params& m : matrices) {
                transform_params params; // for the tables alone
                params.gamma = static_cast<float>(gamma);
                lut_context tables;
                demosaic_params p{};
                ASSERT_TRUE(demosaic_colours(corrections(params), tables, false, p));
                p.matrix_on = true;
                p.matrix = m;
                for (const auto& rgb : colours) {
                    const image from(words ? fcc("RG16") : fcc("RGGB"), 70, 8, 0), to(fcc("BGR3"), 70, 8, 0);
                    fill_with(from, words, rgb);
                    on_each_level(kernel_slot::transform_by_matrix_to_dst, to, from, &p, [&] {
                        for (int i = 0; i < 3; ++i) {
                            double sum = m.m[i][3], reach = std::abs(sum);
                            for (int j = 0; j < 3; ++j) {
                                sum += static_cast<double>(m.m[i][j]) * rgb[j] / 255;
                                reach += std::abs(static_cast<double>(m.m[i][j]));
                            }
                            const bool ends = rgb[0] == rgb[1] && rgb[1] == rgb[2] && rgb[0] % 255 == 0 &&
                                              std::abs(sum - rgb[0] / 255.0) < 1e-6;
                            const double slack = ends ? 0 : words ? 1.0 / 65535 * reach : (0.1 + reach / 60) / 255;
                            const auto seen = [&](double v, double rounding) {
                                const double in = std::clamp(words ? v : std::round(v * 255) / 255, 0.0, 1.0);
                                return std::floor(std::pow(in, gamma) * (words ? 255.99 : 255) + rounding);
                            };
                            const double least = seen(sum - slack, words ? ends ? 0 : -0.5 : 0.5),
                                         most = seen(sum + slack, words ? ends ? 0 : 0.5 : 0.5);
                            for (std::int32_t x = 0; x < 70; ++x) {
                                const int v = to.view.plane_data[0].data[3 * x + 2 - i];
                                ASSERT_TRUE(v >= least && v <= most)
                                    << v << " for " << least << " to " << most << " channel " << i
                                    << (words ? " words" : " bytes") << " gamma " << gamma << " matrix "
                                    << &m - matrices << " colour " << &rgb - colours;
                            }
                        }
                    });
                }
            }
}

// A colour matrix on deep samples rounds: 32767.75 is 0x8000.
TEST(Demosaic, TheMatrixRounds) {
    const std::int32_t width = 40, height = 8;
    const image from(fcc("RG16"), width, height, 0), to(fcc("BGR3"), width, height, 0);
    for (std::int32_t y = 0; y < height; ++y)
        for (std::int32_t x = 0; x < width; ++x) {
            const unsigned v = y % 2 == 1 && x % 2 == 1 ? 32767 : 32768;
            std::uint8_t* at = from.view.plane_data[0].data + 2 * (y * width + x);
            at[0] = static_cast<std::uint8_t>(v);
            at[1] = static_cast<std::uint8_t>(v >> 8);
        }
    demosaic_params params{};
    params.matrix_on = true;
    params.matrix = {{{0.5F, 0.25F, 0.25F, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}}};
    for (const filter_table& level : levels()) {
        run(find_kernel(level, kernel_slot::transform_by_matrix_to_dst, to.view, from.view), to.view, from.view,
            &params);
        for (std::int32_t i = 0; i < width * height; ++i)
            ASSERT_EQ(to.view.plane_data[0].data[3 * i + 2], 0x80) << i << " level " << level[0].required_cpu;
    }
}
