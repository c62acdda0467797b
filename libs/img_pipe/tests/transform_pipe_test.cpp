// The pipe above the kernels: what it chooses and keeps, what it refuses, and that threads, bands and levels do not
// show.
#include "pipe_test.h"

#include <img_pipe/profiler.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
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
    transform_params changed[8];
    changed[1] = {.wb_enable = true, .wb_gain = {0.5F, 0.5F, 0.5F, 0.5F}};
    changed[2] = {.color_matrix_enable = true, .color_matrix = {0.5F, 0, 0, 0, 0.5F, 0, 0, 0, 0.5F}};
    changed[3].brightness = 40;
    changed[4].contrast = 100;
    changed[5].sharpness = 60;
    changed[6].denoise = 30;
    changed[7].gamma = 0.5F;
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

// Every 16-bit sample, on all levels: within a few counts of the power, and black and white as they are. The last one
// is too steep for a curve and looked up.
TEST(TransformPipe, GammaOfWordsIsThePower) {
    for (const float gamma : {0.3F, 0.45F, 0.5F, 0.99F, 1.01F, 1.8F, 2.2F, 3.0F, 7.0F}) {
        std::vector<std::uint8_t> expected;
        for (const std::uint32_t mask : masks()) {
            const image picture(fcc("Y16 "), 256, 256, 0);
            const auto at = [&](int v) { return picture.view.plane_data[0].data + 2 * v; };
            for (int v = 0; v < 65536; ++v) {
                at(v)[0] = static_cast<std::uint8_t>(v);
                at(v)[1] = static_cast<std::uint8_t>(v >> 8);
            }
            transform_params params;
            params.gamma = gamma;
            params.optimization_level = mask;
            transform_pipe pipe;
            ASSERT_TRUE(pipe.transform_in_place(picture.view, params));
            if (expected.empty()) expected = picture.content();
            ASSERT_TRUE(picture.content() == expected) << gamma << " level " << mask;
            for (int v = 0; v < 65536; ++v) {
                const double power = 65535 * std::pow(v / 65535.0, static_cast<double>(gamma));
                ASSERT_NEAR(at(v)[0] | at(v)[1] << 8, power,
                            v == 0 || v == 65535 ? 0
                            : gamma > 3          ? 0.5
                                                 : 3.5)
                    << v << " ^ " << gamma;
            }
        }
    }
}

// What white balance cuts at white goes on as white, also where contrast or brightness take light away.
TEST(TransformPipe, ToneFollowsWhiteBalance) {
    const struct {
        float gain;
        int contrast, brightness;
    } rows[] = {{2, -100, 0}, {2, 100, 0}, {2, 0, -30}, {2, 0, 30}, {0.5F, -100, -20}, {1.3F, 60, -10}};
    for (const auto& row : rows)
        for (const std::uint32_t mask : masks()) {
            const image picture(fcc("BA16"), 256, 256, 0);
            const auto at = [&](int v) { return picture.view.plane_data[0].data + 2 * v; };
            for (int v = 0; v < 65536; ++v) {
                at(v)[0] = static_cast<std::uint8_t>(v);
                at(v)[1] = static_cast<std::uint8_t>(v >> 8);
            }
            transform_params params;
            params.wb_enable = true;
            for (float& gain : params.wb_gain) gain = row.gain;
            params.contrast = row.contrast;
            params.brightness = row.brightness;
            params.optimization_level = mask;
            transform_pipe pipe;
            ASSERT_TRUE(pipe.transform_in_place(picture.view, params));
            for (int v = 0; v < 65536; ++v) {
                const double balanced = std::min(static_cast<double>(v) * static_cast<double>(row.gain), 65535.0);
                const double wanted =
                    (balanced - 32767.5) * (1 + row.contrast / 256.0) + 32767.5 + 65535.0 * row.brightness / 256;
                ASSERT_NEAR(at(v)[0] | at(v)[1] << 8, std::clamp(wanted, 0.0, 65535.0), 1.5)
                    << v << " gain " << row.gain << " contrast " << row.contrast << " brightness " << row.brightness;
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
    transform_params params;
    params.wb_enable = true;
    params.wb_gain[0] = 2;
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
            transform_params params;
            params.contrast = contrast;
            params.force_parameter_route = true;
            ASSERT_TRUE(pipe.transform(colours.view, from->view, params));
            for (int i = 0; i < 16 * 16 * 4; ++i)
                ASSERT_EQ(colours.view.plane_data[0].data[i], 255) << fcc_name(from->view.format) << ' ' << contrast;
        }
    // Brightness is the same number of counts on every way: 1/256 of full scale each.
    std::memset(mosaic.view.plane_data[0].data, 100, 256);
    for (const std::int32_t brightness : {-60, 0, 60}) {
        transform_params params;
        params.brightness = brightness;
        params.saturation = 0.5F;
        ASSERT_TRUE(pipe.transform(colours.view, mosaic.view, params));
        ASSERT_EQ(colours.view.plane_data[0].data[5], std::lround(100 + brightness * 255 / 256.0)) << brightness;
    }
}

TEST(TransformPipe, RefusesWhatItCannotDo) {
    image source(fcc("RGGB"), 16, 16, 0), result(fcc("BGR4"), 16, 16, 0);
    fill(source, 3);
    const auto untouched = result.content();
    transform_pipe pipe;
    const auto refused = [&](auto change) {
        img_descriptor to = result.view, from = source.view;
        change(to, from);
        return !pipe.transform(to, from) && result.content() == untouched;
    };
    EXPECT_TRUE(refused([](auto& to, auto&) { to.width = 0; }));
    EXPECT_TRUE(refused([](auto&, auto& from) { from.height = -1; }));
    EXPECT_TRUE(refused([](auto& to, auto&) { to.plane_data[0].stride = -64; }));
    EXPECT_TRUE(refused([](auto&, auto& from) { from.plane_data[0].stride = 15; }));
    EXPECT_TRUE(refused([](auto&, auto& from) { from.data_size = 255; }));
    EXPECT_TRUE(refused([](auto& to, auto&) { to.data_size -= 65; }));
    EXPECT_TRUE(refused([](auto& to, auto&) { to.plane_data[0].data = nullptr; }));
    EXPECT_TRUE(refused([](auto& to, auto&) { to.format = fcc("none"); }));
    EXPECT_TRUE(refused([](auto&, auto& from) { from.format = 0; }));
    EXPECT_TRUE(refused([](auto&, auto& from) { from = {}; }));
    EXPECT_TRUE(refused([](auto& to, auto& from) { to.height = from.height = 0; }));
    EXPECT_TRUE(
        refused([](auto& to, auto& from) { to.width = from.width = std::numeric_limits<std::int32_t>::min(); }));
    EXPECT_TRUE(refused([](auto& to, auto&) { to.plane_data[0].stride = std::numeric_limits<std::int32_t>::max(); }));
    EXPECT_TRUE(refused([](auto&, auto& from) { from.data_size = 0; }));
    // 2^16 x 2^16 pixels of 4 bytes are 0 bytes in 32 bits.
    EXPECT_TRUE(refused([](auto& to, auto& from) {
        to.width = from.width = to.height = from.height = 65536;
        to.plane_data[0].stride = 0x40000;
        from.plane_data[0].stride = 0x10000;
    }));
    EXPECT_TRUE(
        refused([](auto& to, auto& from) { to.width = from.width = std::numeric_limits<std::int32_t>::max(); }));
    EXPECT_TRUE(refused([](auto& to, auto&) { to.height = 12; })) << "not the source's size";
    EXPECT_TRUE(refused([](auto& to, auto& from) { from.plane_data[0].data = to.plane_data[0].data + 8; }))
        << "one in the other";
    img_descriptor locked = source.view;
    locked.flags = view_read_only;
    transform_params params;
    params.brightness = 9;
    EXPECT_FALSE(pipe.transform_in_place(locked, params));
    EXPECT_FALSE(pipe.transform_in_place(result.view, params)) << "no such row";
}

TEST(TransformPipe, CopiesWhereNoConversionIs) {
    transform_params params;
    params.copy_if_no_transform = true;
    transform_pipe pipe;
    image from(fcc("IYU2"), 6, 4, 7), same(fcc("IYU2"), 6, 4, 2), fewer(fcc("RAW3"), 6, 2, 0);
    fill(from, 4);
    EXPECT_FALSE(pipe.transform(same.view, from.view, params));
    EXPECT_TRUE(same.frame_untouched());
    for (std::int32_t y = 0; y < 4; ++y)
        EXPECT_EQ(std::memcmp(same.view.plane_data[0].data + y * 20, from.view.plane_data[0].data + y * 25, 18), 0);
    EXPECT_FALSE(pipe.transform(fewer.view, from.view, params));
    EXPECT_EQ(std::memcmp(fewer.view.plane_data[0].data, from.view.plane_data[0].data, fewer.view.data_size), 0);
    EXPECT_TRUE(fewer.frame_untouched());
}
