// Demosaicing: plain surfaces keep their value, and large pictures are as small ones.
#include "../src/transform/parameters.h"
#include "../src/transform/transform_state.h"
#include "kernel_test.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string_view>

using namespace kernel_test;

// Large pictures are written past the caches, which asks for aligned lines: aligned or not, the result is that of small
// strips of the same lines.
TEST(Demosaic, LargePicturesAreAsSmallOnes) {
    const std::int32_t width = 8192 + 130, height = 260, shown = 20;
    const struct {
        std::uint32_t from, to;
        std::int32_t pad;
    } rows[] = {{fcc("GRBG"), fcc("BGR4"), 16 - 8322 * 4 % 16},
                {fcc("GRBG"), fcc("BGR4"), 5},
                {fcc("BA16"), fcc("RGB6"), 0},
                {fcc("BA16"), fcc("RGB6"), 6}};
    for (const auto& row : rows) {
        const image from(row.from, width, height, 0), large(row.to, width, height, row.pad);
        from.noise(7);
        const image few(row.from, width, shown, 0), small(row.to, width, shown, row.pad);
        std::memcpy(few.memory.bytes, from.memory.bytes, few.memory.size);
        const auto all = levels();
        run(all.back(), kernel_slot::transform_by_edge_to_dst, small, few);
        for (const filter_table& level : all) {
            if (level[0].required_cpu == cpu::c) continue; // writes nothing past the caches
            run(level, kernel_slot::transform_by_edge_to_dst, large, from);
            ASSERT_TRUE(large.frame_untouched());
            for (std::int32_t y = 0; y < shown - 5; ++y)
                ASSERT_EQ(std::memcmp(line(large.view, y), line(small.view, y),
                                      static_cast<std::size_t>(line_stride(row.to, width))),
                          0)
                    << "line " << y << " level " << level[0].required_cpu << " pad " << row.pad;
        }
    }
}

namespace {

// Mosaics of bytes or words whose samples are `value` of their channel, 0 for blue, and place.
void paint(const image& mosaic, const auto& value) {
    const std::string_view cell = fcc_name(mosaic.view.format);
    for (std::int32_t y = 0; y < mosaic.view.height; ++y)
        for (std::int32_t x = 0; x < mosaic.view.width; ++x) {
            const char letter = cell[static_cast<std::size_t>(y % 2 * 2 + x % 2)];
            bit_packing_of(mosaic.view.format)
                .put(line(mosaic.view, y), static_cast<std::size_t>(x),
                     static_cast<unsigned>(value(letter == 'B'   ? 0
                                                 : letter == 'G' ? 1
                                                                 : 2,
                                                 x, y)));
        }
}

} // namespace

// One colour all over, and a slope that is equal in all channels.
TEST(Demosaic, SurfacesKeepTheirColour) {
    const std::int32_t width = 70, height = 22;
    const struct {
        int colour[3], slope;
    } rows[] = {{{0, 0, 0}, 0},      {{255, 255, 255}, 0}, {{77, 77, 77}, 0},
                {{10, 120, 240}, 0}, {{255, 0, 0}, 0},     {{5, 5, 5}, 2}};
    for (const auto& row : rows)
        for (const std::uint32_t id : {fcc("BA81"), fcc("GBRG"), fcc("GRBG"), fcc("RGGB")}) {
            const image from(id, width, height, 0), to(fcc("BGR4"), width, height, 0);
            const auto value = [&](int c, std::int32_t x, std::int32_t y) {
                return row.colour[c] + row.slope * (x + y);
            };
            paint(from, value);
            on_each_level(kernel_slot::transform_by_matrix_to_dst, to, from, nullptr, [&] {
                const std::int32_t edge = row.slope == 0 ? 0 : 6;
                for (std::int32_t y = edge; y < height - edge; ++y)
                    for (std::int32_t x = edge; x < width - edge; ++x)
                        for (int c = 0; c < 4; ++c)
                            ASSERT_EQ(line(to.view, y)[4 * x + c], c == 3 ? 255 : value(c, x, y))
                                << " at " << x << ',' << y << " channel " << c << " row " << &row - rows;
            });
        }
}

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
                    paint(from, [&](int c, int, int) { return rgb[2 - c] * (words ? 257 : 1); });
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
    const image from(fcc("RG16"), 40, 8, 0), to(fcc("BGR3"), 40, 8, 0);
    paint(from, [](int c, int, int) { return c == 0 ? 32767 : 32768; });
    demosaic_params params{};
    params.matrix_on = true;
    params.matrix = {{{0.5F, 0.25F, 0.25F, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}}};
    on_each_level(kernel_slot::transform_by_matrix_to_dst, to, from, &params, [&] {
        for (std::int32_t i = 0; i < 40 * 8; ++i) ASSERT_EQ(line(to.view, 0)[3 * i + 2], 0x80) << i;
    });
}
