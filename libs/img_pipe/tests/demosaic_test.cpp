// Demosaicing: plain surfaces keep their value, and large pictures are as small ones.
#include "kernel_test.h"

#include <gtest/gtest.h>

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
