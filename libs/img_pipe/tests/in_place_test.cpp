// Images changed where they lie: no strip and no band shows another one changed lines, on any level, and what need not
// change stays.
#include "pipe_test.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string_view>

using namespace kernel_test;

namespace {

// Bits of a mosaic's samples; 0 for other formats.
int layout_bits(std::uint32_t id) {
    const std::string_view name = fcc_name(id);
    if (!name.starts_with("BGGR") && !name.starts_with("GBRG") && !name.starts_with("GRBG") &&
        !name.starts_with("RGGB"))
        return 0;
    return std::atoi(name.substr(4, 2).data());
}

} // namespace

// The lines around each place where strips meet come from the picture as it was, for every number of strips.
TEST(InPlace, EqualsTheSameFromOneImageToAnother) {
    for (const char* name : {"Y800", "Y16 ", "YUY2", "Y411", "BGR3", "BGR4"})
        for (const std::int32_t height : {128, 261, 524})
            for (const unsigned threads : {1U, 2U, 4U, 8U}) {
                transform_params params{.sharpness = 60, .denoise = 4};
                const std::uint32_t id = fcc_from_text(name);
                const image from(id, 40, height, 0), to(id, 40, height, 0);
                fill(from, id);
                transform_pipe pipe;
                params.max_concurrency = 1;
                ASSERT_TRUE(pipe.transform(to.view, from.view, params));
                params.max_concurrency = threads;
                ASSERT_TRUE(pipe.transform(from.view, from.view, params)) << name;
                ASSERT_TRUE(from.content() == to.content()) << name << ' ' << height << " threads " << threads;
            }
}

// Lines that end inside a group of packed samples: the bits they lack are not those of the next line, which another
// thread may be changing.
TEST(InPlace, PackedLinesEndWithTheirOwnBytes) {
    transform_params params{.brightness = 30, .gamma = 0.7F};
    for (const char* name : {"Y10p", "Y10P", "Y12p", "Y12P", "Y1DP"})
        for (const std::int32_t width : {5, 33, 67, 642 + 1}) {
            const std::uint32_t id = fcc_from_text(name);
            const image whole(id, width, 140, 0);
            fill(whole, id);
            // Each line by itself: nothing follows.
            std::vector<std::uint8_t> expected, direct;
            transform_pipe pipe;
            for (std::int32_t y = 0; y < 140; ++y) {
                const image alone(id, width, 1, 0), grey(fcc("Y16 "), width, 1, 0);
                const auto bytes = static_cast<std::size_t>(line_stride(id, width));
                std::memcpy(line(alone.view, 0), line(whole.view, y), bytes);
                ASSERT_TRUE(pipe.transform(grey.view, alone.view, params));
                direct.insert(direct.end(), line(grey.view, 0), line(grey.view, 1));
                ASSERT_TRUE(pipe.transform_in_place(alone.view, params));
                expected.insert(expected.end(), line(alone.view, 0), line(alone.view, 0) + bytes);
            }
            params.max_concurrency = 2;
            const image grey(fcc("Y16 "), width, 140, 0);
            ASSERT_TRUE(pipe.transform(grey.view, whole.view, params));
            EXPECT_TRUE(std::equal(direct.begin(), direct.end(), line(grey.view, 0))) << name << ' ' << width;
            ASSERT_TRUE(pipe.transform_in_place(whole.view, params));
            EXPECT_TRUE(std::equal(expected.begin(), expected.end(), line(whole.view, 0))) << name << ' ' << width;
        }
}

// The pipe's memory is as the frame before left it, and lines that end inside a group of packed samples have it behind
// them.
TEST(InPlace, NothingOfTheFrameBeforeShows) {
    const transform_params params{.sharpness = 60};
    for (const std::uint32_t id : in_place_formats())
        for (const std::int32_t width : {5, 35, 67}) {
            std::vector<std::uint8_t> first;
            for (const int level : {0, 0xFF}) {
                const image before(id, 3 * width, 140, 0), picture(id, width, 140, 0);
                std::memset(before.memory.bytes, level, before.memory.size);
                fill(picture, id);
                transform_pipe pipe;
                ASSERT_TRUE(pipe.transform_in_place(before.view, params)) << fcc_name(id);
                ASSERT_TRUE(pipe.transform_in_place(picture.view, params)) << fcc_name(id);
                if (first.empty()) first = picture.content();
                EXPECT_TRUE(picture.content() == first) << fcc_name(id) << ' ' << width;
            }
        }
}

TEST(InPlace, NeutralParametersChangeNothing) {
    for (const std::int32_t width : {36, 35})
        for (const std::uint32_t id : in_place_formats())
            for (const bool forced : {false, true}) {
                const image picture(id, width, 22, 0);
                fill(picture, id);
                const auto before = picture.content();
                transform_pipe pipe;
                ASSERT_TRUE(pipe.transform_in_place(picture.view, {.force_parameter_route = forced}));
                ASSERT_TRUE(picture.content() == before) << fcc_name(id) << ' ' << width << (forced ? " forced" : "");
            }
}

// From one image to another: neutral parameters that are applied give what none gives. So does a colour matrix next to
// the neutral one, where the demosaic before it is the same.
TEST(InPlace, NeutralColoursStay) {
    for (const char* name : {"RGGB", "BG10", "GB12", "BA16", "RGAp", "BGCP", "RGB6", "BGR3", "BGR4", "YUY2"})
        for (const char* out : {"BGR3", "BGR4", "RGB6", "Y800", "I420", "YV12"}) {
            const std::uint32_t from = fcc_from_text(name), to = fcc_from_text(out);
            const auto outputs = find_transform_outputs(from);
            if (std::ranges::find(outputs, to) == outputs.end()) continue;
            const auto same_colours = [&](const image& a, const image& b) {
                for (std::size_t i = image::front; i < a.memory.size; ++i) {
                    const bool alpha = to == fcc("BGR4") && (i - image::front) % 4 == 3;
                    if (a.memory.bytes[i] != b.memory.bytes[i] && !alpha) return false;
                }
                return true;
            };
            const image source(from, 64, 20, 0), plain(to, 64, 20, 0), result(to, 64, 20, 0);
            fill(source, from);
            transform_pipe pipe;
            ASSERT_TRUE(pipe.transform(plain.view, source.view));
            ASSERT_TRUE(pipe.transform(result.view, source.view, {.force_parameter_route = true}));
            EXPECT_TRUE(same_colours(plain, result)) << name << " to " << out << " forced";
            const transform_params params{.color_matrix_enable = true, .color_matrix = {1, 1e-7F, 0, 0, 1, 0, 0, 0, 1}};
            ASSERT_TRUE(pipe.transform(result.view, source.view, params));
            const bool deep = layout_bits(from) > 8 && to != fcc("RGB6");
            if (!deep) {
                EXPECT_TRUE(same_colours(plain, result)) << name << " to " << out << " by a matrix";
            } else if (to == fcc("BGR3") || to == fcc("BGR4")) {
                // All bits of the samples go as far as the matrix then.
                const image wide(fcc("RGB6"), 64, 20, 0), narrowed(to, 64, 20, 0);
                ASSERT_TRUE(pipe.transform(wide.view, source.view));
                ASSERT_TRUE(pipe.transform(narrowed.view, wide.view));
                EXPECT_TRUE(same_colours(narrowed, result)) << name << " to " << out << " by a matrix";
            }
        }
}

// A frame that is given as source and as destination: blue-green-red has no row in place and is served all the same.
TEST(InPlace, TheSameImageTwiceFrameAfterFrame) {
    for (const char* name : {"BGR3", "BGR4", "Y800", "RGGB", "YUY2"})
        for (transform_params params : parameter_sets()) {
            const std::uint32_t id = fcc_from_text(name);
            const image twice(id, 64, 200, 3), apart(id, 64, 200, 3);
            fill(twice, id);
            params.wb_enable = params.wb_enable && id != fcc("RGGB");
            transform_pipe pipe, other;
            const bool mosaic = id == fcc("RGGB"); // to itself from image to image a mosaic is only repacked
            ASSERT_TRUE(mosaic || other.transform(apart.view, twice.view, params)) << name;
            for (int frame = 0; frame < 3; ++frame) {
                ASSERT_TRUE(pipe.transform(twice.view, twice.view, params)) << name << " frame " << frame;
                ASSERT_TRUE(twice.frame_untouched());
                if (frame == 0 && !mosaic) {
                    EXPECT_TRUE(twice.content() == apart.content()) << name;
                }
                EXPECT_EQ(pipe.table_searches(), 1U) << name;
            }
            img_descriptor locked = twice.view;
            locked.flags = view_read_only;
            const auto before = twice.content();
            EXPECT_FALSE(pipe.transform(twice.view, locked, params)) << name;
            EXPECT_TRUE(twice.content() == before);
        }
}
