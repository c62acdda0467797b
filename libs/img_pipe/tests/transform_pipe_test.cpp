// The pipe above the kernels: what it chooses and keeps, what it refuses, and that threads, bands and levels do not
// show.
#include "pipe_test.h"

#include <img_pipe/profiler.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>

using namespace kernel_test;

TEST(TransformTables, RowsAndOutputs) {
    const auto all = find_transform_outputs(0);
    const std::vector<std::uint32_t> first{fcc("BGR4"), fcc("RGB6"), fcc("Y800"),
                                           fcc("Y16 "), fcc("I420"), fcc("YV12")};
    ASSERT_GT(all.size(), first.size());
    EXPECT_TRUE(std::equal(first.begin(), first.end(), all.begin()));
    EXPECT_EQ(find_transform_outputs(fcc("BGR4")), std::vector{fcc("Y800")}) << "to itself is hidden";
    EXPECT_EQ(find_transform_outputs(fcc("RGGB")),
              (std::vector{fcc("BGR4"), fcc("BGR3"), fcc("YV12"), fcc("I420"), fcc("RGGB"), fcc("RAW1"), fcc("Y800")}));
    EXPECT_TRUE(find_transform_outputs(fcc("MJPG")).empty());
}

// Every entry says which parameters it honours: exactly those change its picture.
TEST(TransformTables, EntriesHonourWhatTheySay) {
    const std::vector<std::uint8_t> colours{0, 1, 1, 1, 1, 1, 1, 1}, greys{0, 0, 0, 1, 1, 1, 1, 1},
        repacked{0, 1, 0, 0, 0, 0, 0, 0}, nothing(8);
    const transform_params changed[8]{
        {},
        {.wb_enable = true, .wb_gain = {0.5F, 0.5F, 0.5F, 0.5F}},
        {.color_matrix_enable = true, .color_matrix = {0.5F, 0, 0, 0, 0.5F, 0, 0, 0, 0.5F}},
        {.brightness = 40},
        {.contrast = 100},
        {.sharpness = 60},
        {.denoise = 30},
        {.gamma = 0.5F}};
    const auto check = [&](const transform_plan& plan, std::uint32_t from, std::uint32_t to, const char* name) {
        const std::vector<std::uint8_t> said(plan.capabilities, plan.capabilities + 8);
        EXPECT_THAT(said, testing::AnyOf(colours, greys, repacked, nothing)) << name;
        std::vector<std::uint8_t> neutral;
        for (const transform_params& params : changed) {
            const image source(from, 16, 16, 0), other(to, 16, 16, 0);
            const image& result = plan.convert_in_place != nullptr ? source : other;
            fill(source, 8);
            transform_pipe pipe;
            ASSERT_TRUE(pipe.transform(result.view, source.view, params));
            if (neutral.empty()) neutral = result.content();
            EXPECT_EQ(result.content() != neutral, said[static_cast<std::size_t>(&params - changed)] != 0)
                << name << ' ' << fcc_name(from) << " to " << fcc_name(to) << ' ' << &params - changed;
        }
    };
    for (const conversion_row& row : conversion_table()) {
        const img_type source{row.sources[0], 16, 16, 0}, destination{row.destinations[0], 16, 16, 0};
        check(row.make_plan(destination, source), source.format, destination.format, row.function);
    }
    for (const in_place_row& row : in_place_table())
        check(row.make_plan({row.formats[0], 16, 16, 0}), row.formats[0], row.formats[0], row.function);
}

// What corrects each sample for itself is done on the mosaic; there and back through colours gives the same.
TEST(TransformPipe, ShortcutOnMosaicsEqualsTheFullRoad) {
    for (const char* name :
         {"BA81", "GBRG", "GRBG", "RGGB", "BG10", "RG12", "GB16", "RGAp", "GRAP", "BGCp", "GBCP", "RGDP"}) {
        transform_params params = parameter_sets()[1];
        std::vector<std::uint8_t> expected;
        for (const bool forced : {false, true}) {
            image picture(fcc_from_text(name), 68, 150, 0);
            fill(picture, 5);
            params.force_parameter_route = forced;
            transform_pipe pipe;
            ASSERT_TRUE(pipe.transform_in_place(picture.view, params));
            if (!forced) expected = picture.content();
            ASSERT_TRUE(picture.content() == expected) << name;
        }
    }
}

TEST(TransformPipe, KeepsItsChoiceAndItsMemory) {
    transform_pipe pipe;
    image source(fcc("RGGB"), 64, 200, 0), other(fcc("RGGB"), 64, 196, 0);
    image result(fcc("BGR4"), 64, 200, 0), smaller(fcc("BGR4"), 64, 196, 0);
    transform_params params = parameter_sets()[2];
    params.max_concurrency = 2;
    for (int frame = 0; frame < 3; ++frame) {
        ASSERT_TRUE(pipe.transform(result.view, source.view, params));
        EXPECT_EQ(pipe.table_searches(), 1U);
    }
    const std::uint64_t allocations = pipe.allocations();
    ASSERT_TRUE(pipe.transform(result.view, source.view, params));
    EXPECT_EQ(pipe.allocations(), allocations);
    ASSERT_TRUE(pipe.transform(smaller.view, other.view, params));
    EXPECT_EQ(pipe.table_searches(), 2U) << "another height";
    ASSERT_TRUE(pipe.transform_in_place(other.view, params));
    EXPECT_EQ(pipe.table_searches(), 3U) << "the same format in place";
    params.optimization_level = 1;
    ASSERT_TRUE(pipe.transform_in_place(other.view, params));
    EXPECT_EQ(pipe.level(), 1U);
    params.optimization_level = 0xFFFFFFFF;
    ASSERT_TRUE(pipe.transform_in_place(other.view, params));
    EXPECT_EQ(pipe.level(), cpu_mask()) << "never above the processor";
}

// Every 16-bit and every 12-bit sample at every site, on all levels: gains, cut at white; contrast and brightness, cut
// at both ends; rounded, then the power within a few counts. Powers above 3 are too steep for a curve and looked up.
TEST(TransformPipe, WordsFollowGainsToneAndGamma) {
    constexpr std::int32_t width = 514, height = 512;
    const auto sample = [](std::int32_t x, std::int32_t y) {
        return static_cast<unsigned>((y / 2 * 257 + x / 2) & 0xFFFF);
    };
    const struct {
        float gain[3]; // red, green, blue
        int contrast, brightness;
        float gamma;
    } rows[] = {{{1, 1, 1}, 0, 0, 0.3F},
                {{1, 1, 1}, 0, 0, 0.45F},
                {{1, 1, 1}, 0, 0, 0.5F},
                {{1, 1, 1}, 0, 0, 0.99F},
                {{1, 1, 1}, 0, 0, 1.01F},
                {{1, 1, 1}, 0, 0, 1.8F},
                {{1, 1, 1}, 0, 0, 2.2F},
                {{1, 1, 1}, 0, 0, 3},
                {{1, 1, 1}, 0, 0, 7},
                {{2, 2, 2}, -100, 0, 1},
                {{2, 2, 2}, 100, 0, 1},
                {{2, 2, 2}, 0, -30, 1},
                {{2, 2, 2}, 0, 30, 1},
                {{0.5F, 0.5F, 0.5F}, -100, -20, 1},
                {{1.3F, 1.3F, 1.3F}, 60, -10, 1},
                {{1.4F, 1, 1.7F}, 0, 8, 0.5F},
                {{0.9F, 1, 0.6F}, 0, -8, 0.45F},
                {{1.3F, 1, 2}, 0, 0, 1.8F},
                {{0.5F, 1, 0.7F}, 0, -20, 2.2F}};
    for (const char* name : {"Y16 ", "RG16", "RGCp"}) {
        const std::uint32_t id = fcc_from_text(name);
        const bit_packing packed = bit_packing_of(id);
        const unsigned shift = 16 - packed.bits;
        const image original(id, width, height, 0), picture(id, width, height, 0);
        for (std::int32_t y = 0; y < height; ++y)
            for (std::int32_t x = 0; x < width; ++x)
                packed.put(line(original.view, y), static_cast<std::size_t>(x), sample(x, y) >> shift);
        for (const auto& row : rows) {
            const bool balanced = std::ranges::any_of(row.gain, [](float g) { return g != 1; });
            if (balanced && id == fcc("Y16 ")) continue; // has no gains
            std::vector<double> wanted[3];
            for (std::size_t c = 0; c < 3; ++c)
                for (int v = 0; v < 65537; ++v) {
                    const double light = std::min(static_cast<double>(static_cast<float>(v) * row.gain[c]), 65535.0),
                                 tone = (light - 32767.5) * (1 + row.contrast / 256.0) + 32767.5 +
                                        65535.0 * row.brightness / 256;
                    wanted[c].push_back(
                        65535 * std::pow(std::clamp(tone, 0.0, 65535.0) / 65535, static_cast<double>(row.gamma)));
                }
            std::vector<std::uint8_t> first;
            for (const std::uint32_t mask : masks()) {
                const transform_params params{.optimization_level = mask,
                                              .wb_enable = balanced,
                                              .wb_gain = {row.gain[0], row.gain[1], row.gain[2], row.gain[1]},
                                              .contrast = row.contrast,
                                              .brightness = row.brightness,
                                              .gamma = row.gamma};
                std::ranges::copy(original.content(), picture.memory.bytes);
                transform_pipe pipe;
                ASSERT_TRUE(pipe.transform_in_place(picture.view, params));
                if (!first.empty()) {
                    ASSERT_TRUE(picture.content() == first) << name << ' ' << row.gamma << " level " << mask;
                    continue;
                }
                first = picture.content();
                for (std::int32_t y = 0; y < height; ++y)
                    for (std::int32_t x = 0; x < width; ++x) {
                        const std::size_t v = sample(x, y) >> shift << shift;
                        const auto& values = wanted[x % 2 + y % 2];
                        double near = row.gamma == 1 ? 1.5 : row.gamma > 3 ? 0.5 : 3.5;
                        // A sample that lies between two may have been rounded to the other one.
                        if (balanced && row.gamma != 1) near += std::abs(values[v + 1] - values[v == 0 ? 0 : v - 1]);
                        if (!balanced && (v == 0 || v == 65535)) near = 0;
                        ASSERT_NEAR(packed.get(line(picture.view, y), static_cast<std::size_t>(x)) << shift, values[v],
                                    near + (1U << shift) - 1)
                            << v << " at " << x << ' ' << y << " of " << name << ", row " << &row - rows;
                    }
            }
        }
    }
}

TEST(TransformPipe, GammaTablesAreBuiltOnce) {
    transform_pipe pipe;
    profiler times;
    profiler* before = profiler::set_current(&times);
    const gamma_tables* tables = pipe.get_lut_context(1.0F);
    EXPECT_EQ(tables->words[12345], 12345);
    EXPECT_EQ(pipe.get_lut_context(1.0F), tables);
    EXPECT_EQ(pipe.get_lut_context(2.0F)->words[32768], 16384);
    EXPECT_EQ(tables->bytes[100], std::lround(100.0 * 100 / 255));
    profiler::set_current(before);
    // No number is neutral, and stays so; powers that would not fit are held back.
    const float nan = std::nanf("");
    EXPECT_EQ(pipe.get_lut_context(nan)->words[12345], 12345);
    EXPECT_EQ(pipe.get_lut_context(nan)->gamma_value, 1.0F);
    EXPECT_EQ(pipe.get_lut_context(-1.0F)->bytes[255], 255);
    EXPECT_EQ(pipe.get_lut_context(std::numeric_limits<float>::infinity())->gamma_value, 1.0F);
    const auto lines = times.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].substr(0, 60), "{img_pipe::transform_state::get_lut_context}           #   2");
}

TEST(Profiler, EveryPassAndItsConversion) {
    transform_pipe pipe;
    const image mosaic(fcc("RGGB"), 16, 16, 0), colours(fcc("BGR4"), 16, 16, 0);
    fill(mosaic, 1);
    const transform_params params{.wb_enable = true, .wb_gain = {2, 1, 1, 1}};
    profiler times;
    profiler* before = profiler::set_current(&times);
    for (int frame = 0; frame < 3; ++frame) {
        ASSERT_TRUE(pipe.transform(colours.view, mosaic.view, params));
        ASSERT_TRUE(pipe.transform(mosaic.view, mosaic.view, params));
    }
    profiler::set_current(before);
    const auto lines = times.lines();
    ASSERT_EQ(lines.size(), 3U);
    const auto begins = [](std::string name, const char* count) {
        name.resize(54, ' ');
        return testing::StartsWith(name + count);
    };
    EXPECT_THAT(lines[0], begins("{img_pipe::transform_pipe}", " #   6"));
    EXPECT_THAT(lines[1], begins("  {transform_bayer8_to_bgr_helper}", " #   3"));
    EXPECT_THAT(lines[2], begins("  {transform_unary_bayer8}", " #   3"));
}

TEST(Profiler, LinesOfNestedSteps) {
    using namespace std::chrono_literals;
    profiler times;
    times.add("whole", 0, 3000us);
    times.add("part", 1, 500us);
    times.add("part", 1, 1000us);
    const auto pad = [](const std::string& s) { return s + std::string(54 - s.size(), ' '); };
    EXPECT_EQ(times.lines(), (std::vector<std::string>{pad("{whole}") + " #   1 time=              3000us, 100.00%",
                                                       pad("  {part}") + " #   2 time=    750us /   1500us,  50.00%"}));
}

// White stays white and black black however strong the gain, and no gain changes the others.
TEST(TransformPipe, MatrixKeepsItsEnds) {
    const image mosaic(fcc("RGGB"), 16, 16, 0), deep(fcc("RG16"), 16, 16, 0), colours(fcc("BGR4"), 16, 16, 0);
    std::memset(mosaic.view.plane_data[0].data, 255, 256);
    std::memset(deep.view.plane_data[0].data, 255, 512);
    transform_pipe pipe;
    for (const std::int32_t contrast : {0, 300, 256 * 20, 256 * 255})
        for (const image* from : {&mosaic, &deep}) {
            ASSERT_TRUE(
                pipe.transform(colours.view, from->view, {.force_parameter_route = true, .contrast = contrast}));
            for (int i = 0; i < 16 * 16 * 4; ++i)
                ASSERT_EQ(colours.view.plane_data[0].data[i], 255) << fcc_name(from->view.format) << ' ' << contrast;
        }
    // Brightness is the same number of counts on every way: 1/256 of full scale each.
    std::memset(mosaic.view.plane_data[0].data, 100, 256);
    for (const std::int32_t brightness : {-60, 0, 60}) {
        ASSERT_TRUE(pipe.transform(colours.view, mosaic.view, {.saturation = 0.5F, .brightness = brightness}));
        ASSERT_EQ(colours.view.plane_data[0].data[5], std::lround(100 + brightness * 255 / 256.0)) << brightness;
    }
}

TEST(TransformPipe, RefusesWhatItCannotDo) {
    image source(fcc("RGGB"), 16, 16, 0), result(fcc("BGR4"), 16, 16, 0);
    fill(source, 3);
    const auto untouched = result.content();
    transform_pipe pipe;
    constexpr std::int32_t least = std::numeric_limits<std::int32_t>::min(),
                           most = std::numeric_limits<std::int32_t>::max();
    const std::function<void(img_descriptor & to, img_descriptor & from)> changes[] = {
        [](auto& to, auto&) { to.width = 0; },
        [](auto&, auto& from) { from.height = -1; },
        [](auto& to, auto&) { to.plane_data[0].stride = -64; },
        [](auto&, auto& from) { from.plane_data[0].stride = 15; },
        [](auto&, auto& from) { from.data_size = 255; },
        [](auto& to, auto&) { to.data_size -= 65; },
        [](auto& to, auto&) { to.plane_data[0].data = nullptr; },
        [](auto& to, auto&) { to.format = fcc("none"); },
        [](auto&, auto& from) { from.format = 0; },
        [](auto&, auto& from) { from = {}; },
        [](auto& to, auto& from) { to.height = from.height = 0; },
        [](auto& to, auto& from) { to.width = from.width = least; },
        [](auto& to, auto&) { to.plane_data[0].stride = most; },
        [](auto&, auto& from) { from.data_size = 0; },
        [](auto& to, auto& from) { // 2^16 x 2^16 pixels of 4 bytes are 0 bytes in 32 bits
            to.width = from.width = to.height = from.height = 65536;
            to.plane_data[0].stride = 0x40000;
            from.plane_data[0].stride = 0x10000;
        },
        [](auto& to, auto& from) { to.width = from.width = most; },
        [](auto& to, auto&) { to.height = 12; },                                            // not the source's size
        [](auto& to, auto& from) { from.plane_data[0].data = to.plane_data[0].data + 8; }}; // one in the other
    for (const auto& change : changes) {
        img_descriptor to = result.view, from = source.view;
        change(to, from);
        EXPECT_FALSE(pipe.transform(to, from)) << &change - changes;
        EXPECT_TRUE(result.content() == untouched) << &change - changes;
    }
    img_descriptor locked = source.view;
    locked.flags = view_read_only;
    EXPECT_FALSE(pipe.transform_in_place(locked, {.brightness = 9}));
    EXPECT_FALSE(pipe.transform_in_place(result.view, {.brightness = 9})) << "no such row";
}

TEST(TransformPipe, CopiesWhereNoConversionIs) {
    const transform_params params{.copy_if_no_transform = true};
    transform_pipe pipe;
    image from(fcc("IYU2"), 6, 4, 7), same(fcc("IYU2"), 6, 4, 2), fewer(fcc("RAW3"), 6, 2, 0);
    fill(from, 4);
    EXPECT_FALSE(pipe.transform(same.view, from.view, params));
    EXPECT_TRUE(same.frame_untouched());
    for (std::int32_t y = 0; y < 4; ++y) EXPECT_EQ(std::memcmp(line(same.view, y), line(from.view, y), 18), 0);
    EXPECT_FALSE(pipe.transform(fewer.view, from.view, params));
    EXPECT_EQ(std::memcmp(fewer.view.plane_data[0].data, from.view.plane_data[0].data, fewer.view.data_size), 0);
    EXPECT_TRUE(fewer.frame_untouched());
}
