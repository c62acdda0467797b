// Demosaicing: levels and strips agree to the last bit, nothing but the image is touched, plain surfaces keep their
// value, and a mosaic of another phase is the same mosaic one column or line on.
#include "kernel_test.h"

#include <gtest/gtest.h>

#include <random>

using namespace kernel_test;

namespace {

constexpr std::uint32_t bayer8[] = {fcc("BA81"), fcc("GBRG"), fcc("GRBG"), fcc("RGGB")};
constexpr std::uint32_t sources[] = {fcc("BA81"), fcc("GBRG"), fcc("GRBG"), fcc("RGGB"), fcc("RG10"), fcc("BA12"),
                                     fcc("GB16"), fcc("BGAp"), fcc("GRAP"), fcc("RGCp"), fcc("GBCP"), fcc("BGDP")};
constexpr std::uint32_t destinations[] = {fcc("BGR3"), fcc("BGR4"), fcc("RGB6"), fcc("I420"), fcc("YV12"), fcc("Y800")};

void fill(const image& to, std::mt19937& random) {
    const bool wide = to.view.format == fcc("RG10") || to.view.format == fcc("BA12");
    const unsigned high = to.view.format == fcc("RG10") ? 3 : 15; // unused upper bits are 0
    for (std::size_t i = 0; i < to.memory.size; ++i) {
        const unsigned v = random();
        // Extremes as often as values between.
        to.memory.bytes[i] = static_cast<std::uint8_t>(v % 4 == 0 ? 0 : v % 4 == 1 ? 255 : v >> 8);
    }
    for (std::int32_t y = 0; wide && y < to.view.height; ++y)
        for (std::int32_t x = 0; x < to.view.width; ++x)
            to.view.plane_data[0].data[y * to.view.plane_data[0].stride + 2 * x + 1] &= static_cast<std::uint8_t>(high);
}

const demosaic_params& all_on() {
    static const std::vector<std::uint16_t> gamma = [] {
        std::vector<std::uint16_t> t(65536);
        for (std::size_t i = 0; i < t.size(); ++i) t[i] = static_cast<std::uint16_t>(65535 - i);
        return t;
    }();
    static const std::vector<std::uint8_t> gamma8 = [] {
        std::vector<std::uint8_t> t(256);
        for (std::size_t i = 0; i < t.size(); ++i) t[i] = static_cast<std::uint8_t>(255 - i);
        return t;
    }();
    static const demosaic_params p{true,
                                   true,
                                   {{1.5F, 1, 1, 0.7F}, 300, nullptr, nullptr},
                                   {{{1.6F, -0.4F, -0.2F, 0.01F}, {-0.3F, 1.5F, -0.2F, 0}, {0, -0.5F, 1.5F, -0.02F}}},
                                   gamma.data(),
                                   gamma8.data()};
    return p;
}

} // namespace

TEST(Demosaic, LevelsAndStripsAgreeAndStayInTheImage) {
    std::mt19937 random(5);
    const struct {
        std::int32_t width, height;
    } sizes[] = {{2, 2}, {4, 2}, {3, 3}, {20, 5}, {36, 12}, {63, 9}, {132, 12}, {1060, 8}};
    const auto all = levels();
    for (const std::uint32_t source : sources)
        for (const std::uint32_t destination : destinations)
            for (const auto& size : sizes) {
                if (size.width % format_description(source).pixel_group != 0) continue;
                const bool planar = destination == fcc("I420") || destination == fcc("YV12");
                if (planar && (size.width % 2 != 0 || size.height % 2 != 0)) continue;
                const std::int32_t pad = size.width % 8 == 4 ? 6 : 0;
                const image from(source, size.width, size.height, pad);
                fill(from, random);
                for (const demosaic_params* params : {static_cast<const demosaic_params*>(nullptr), &all_on()}) {
                    std::vector<std::uint8_t> first;
                    for (const filter_table& level : all)
                        for (const std::int32_t strip : {size.height, 4}) {
                            const image to(destination, size.width, size.height, pad);
                            const kernel_fn kernel =
                                find_kernel(level, kernel_slot::transform_by_edge_to_dst, to.view, from.view);
                            if (destination == fcc("RGB6") && format_description(source).bits_per_pixel == 8) {
                                EXPECT_EQ(kernel, nullptr);
                                continue;
                            }
                            ASSERT_NE(kernel, nullptr);
                            for (std::int32_t y = 0; y < size.height; y += strip)
                                run(kernel, to.view, from.view, params, y, std::min(strip, size.height - y));
                            ASSERT_TRUE(to.frame_untouched());
                            if (first.empty()) first = to.content();
                            ASSERT_EQ(first, to.content())
                                << fcc_name(source) << " to " << fcc_name(destination) << ' ' << size.width << 'x'
                                << size.height << " level " << level[0].required_cpu << " strip " << strip
                                << (params == nullptr ? "" : " corrected");
                        }
                }
            }
}

// Large pictures are written past the caches, which asks for aligned lines: aligned or not, the result is that of small
// strips of the same lines.
TEST(Demosaic, LargePicturesAreAsSmallOnes) {
    std::mt19937 random(7);
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
        fill(from, random);
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

// Without its first column or line a mosaic has another phase; away from the edges the picture is the same.
TEST(Demosaic, PhasesAreShiftsOfEachOther) {
    std::mt19937 random(6);
    const std::int32_t width = 48, height = 30;
    const image from(fcc("RGGB"), width, height, 0), whole(fcc("BGR3"), width, height, 0);
    fill(from, random);
    const filter_table plain = levels().back();
    const auto convert = [&](const image& to, const image& source) {
        run(find_kernel(plain, kernel_slot::transform_by_edge_to_dst, to.view, source.view), to.view, source.view,
            nullptr);
    };
    convert(whole, from);
    const struct {
        std::uint32_t format;
        std::int32_t dx, dy;
    } rows[] = {{fcc("GRBG"), 1, 0}, {fcc("GBRG"), 0, 1}, {fcc("BA81"), 1, 1}};
    for (const auto& row : rows) {
        const std::int32_t w = width - row.dx, h = height - row.dy;
        const image part(row.format, w, h, 0), result(fcc("BGR3"), w, h, 0);
        for (std::int32_t y = 0; y < h; ++y)
            std::memcpy(part.view.plane_data[0].data + y * w,
                        from.view.plane_data[0].data + (y + row.dy) * width + row.dx, static_cast<std::size_t>(w));
        convert(result, part);
        for (std::int32_t y = 6; y < h - 6; ++y)
            ASSERT_EQ(std::memcmp(result.view.plane_data[0].data + (y * w + 6) * 3,
                                  whole.view.plane_data[0].data + ((y + row.dy) * width + row.dx + 6) * 3,
                                  static_cast<std::size_t>(w - 12) * 3),
                      0)
                << fcc_name(row.format) << " line " << y;
    }
}
