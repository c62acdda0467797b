// The pipe above the kernels: what it chooses and keeps, what it refuses, and that threads, bands and levels do not
// show.
#include "kernel_test.h"

#include <img_pipe/profiler.h>
#include <img_pipe/transform_pipe.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <random>

using namespace kernel_test;

namespace {

// The levels of this processor, as masks that a caller gives.
std::vector<std::uint32_t> masks() {
    std::vector<std::uint32_t> all;
    for (const filter_table& level : levels()) all.push_back(level[0].required_cpu);
    return all;
}

void fill(const image& to, unsigned seed) {
    std::mt19937 random(seed);
    const format_description d(to.view.format);
    for (std::int32_t i = 0; i < d.plane_count; ++i)
        for (std::int32_t y = 0; y < to.view.height / d.planes[i].vertical_subsampling; ++y)
            for (std::int32_t x = 0; x < line_stride(to.view.format, to.view.width, i); ++x)
                to.view.plane_data[i].data[y * to.view.plane_data[i].stride + x] = static_cast<std::uint8_t>(random());
    // Unused upper bits of unpacked samples are 0.
    const std::uint32_t id = to.view.format;
    unsigned bits = 16;
    for (const char* name : {"Y10 ", "BG10", "GB10", "BA10", "RG10"}) bits = fcc_from_text(name) == id ? 10 : bits;
    for (const char* name : {"Y12 ", "BG12", "GB12", "BA12", "RG12"}) bits = fcc_from_text(name) == id ? 12 : bits;
    if (bits == 16) return;
    for (std::int32_t y = 0; y < to.view.height; ++y)
        for (std::int32_t x = 0; x < to.view.width; ++x)
            to.view.plane_data[0].data[y * to.view.plane_data[0].stride + 2 * x + 1] &=
                static_cast<std::uint8_t>((1U << (bits - 8)) - 1);
}

std::vector<transform_params> parameter_sets() {
    std::vector<transform_params> all(5);
    all[1].wb_enable = true;
    all[1].wb_gain[0] = 1.7F;
    all[1].wb_gain[2] = 0.6F;
    all[1].brightness = 13;
    all[1].contrast = -40;
    all[1].gamma = 0.6F;
    all[2].saturation = 1.4F;
    all[2].hue = 0.2F;
    all[2].sharpness = 20;
    all[2].denoise = 3;
    all[3].force_parameter_route = true;
    all[3].route_flags[1] = 1;
    all[4].color_matrix_enable = true;
    all[4].color_matrix[1] = -0.3F;
    all[4].contrast = 60;
    all[4].gamma = 1.8F;
    all[4].sharpness = 9;
    return all;
}

struct format_pair {
    std::uint32_t from, to;
};
std::vector<format_pair> pairs_of_tables() {
    std::vector<format_pair> all;
    for (const conversion_row& row : conversion_table())
        for (const std::uint32_t from : row.sources)
            for (const std::uint32_t to : row.destinations)
                if (from != 0 && to != 0) all.push_back({from, to});
    return all;
}

} // namespace

TEST(TransformTables, RowsAndOutputs) {
    EXPECT_EQ(conversion_table().size(), 84U);
    EXPECT_EQ(in_place_table().size(), 13U);
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

// Every pair, at awkward sizes with lines apart, with each set of parameters: every level gives the same bytes, writes
// all of the destination and nothing else, and leaves the source alone.
TEST(TransformPipe, EveryPairOnEveryLevel) {
    struct {
        std::int32_t width, height, pad;
    } const sizes[] = {{2, 2, 0}, {8, 6, 3}, {36, 9, 0}, {20, 38, 16}};
    const auto levels_here = masks();
    // One for each level and set, as a stream would have it: gamma tables are built once.
    std::map<std::pair<std::uint32_t, std::size_t>, transform_pipe> pipes;
    unsigned seed = 1;
    for (const format_pair& p : pairs_of_tables())
        for (const auto& size : sizes) {
            if (size.width % format_description(p.from).pixel_group != 0) continue;
            image source(p.from, size.width, size.height, size.pad);
            fill(source, ++seed);
            source.view.flags = view_read_only;
            const auto before = source.content();
            for (std::size_t set = 0; set < parameter_sets().size(); ++set) {
                transform_params params = parameter_sets()[set];
                std::vector<std::uint8_t> expected;
                for (const std::uint32_t mask : levels_here) {
                    params.optimization_level = mask;
                    params.max_concurrency = 1;
                    transform_pipe& pipe = pipes[{mask, set}];
                    image result(p.to, size.width, size.height, size.pad);
                    const bool ran = pipe.transform(result.view, source.view, params);
                    const auto where = [&] {
                        return ::testing::Message() << fcc_name(p.from) << " to " << fcc_name(p.to) << ' ' << size.width
                                                    << 'x' << size.height << " level " << mask;
                    };
                    ASSERT_TRUE(ran) << where();
                    ASSERT_TRUE(source.content() == before) << where();
                    ASSERT_TRUE(result.frame_untouched()) << where();
                    if (expected.empty()) expected = result.content();
                    ASSERT_TRUE(result.content() == expected) << where();
                }
            }
        }
}

// In place: no strip and no band shows another one changed lines, on any level.
TEST(TransformPipe, InPlaceIsAlikeForAllThreadsAndLevels) {
    for (const in_place_row& row : in_place_table())
        for (const std::uint32_t id : row.formats) {
            if (id == 0) continue;
            for (transform_params params : parameter_sets()) {
                std::vector<std::uint8_t> expected;
                for (const std::uint32_t mask : masks())
                    for (const unsigned threads : {1U, 3U}) {
                        image picture(id, 36, 206, 5);
                        fill(picture, id);
                        params.optimization_level = mask;
                        params.max_concurrency = threads;
                        transform_pipe pipe;
                        ASSERT_TRUE(pipe.transform_in_place(picture.view, params)) << fcc_name(id);
                        ASSERT_TRUE(picture.frame_untouched()) << fcc_name(id);
                        if (expected.empty()) expected = picture.content();
                        ASSERT_TRUE(picture.content() == expected)
                            << fcc_name(id) << " level " << mask << " threads " << threads;
                    }
            }
        }
}

TEST(TransformPipe, NeutralParametersChangeNothing) {
    for (const in_place_row& row : in_place_table())
        for (const std::uint32_t id : row.formats)
            for (const bool forced : {false, true}) {
                if (id == 0) continue;
                image picture(id, 36, 22, 0);
                fill(picture, id);
                const auto before = picture.content();
                transform_params params;
                params.force_parameter_route = forced;
                transform_pipe pipe;
                ASSERT_TRUE(pipe.transform_in_place(picture.view, params));
                const bool lossy = forced && format_description(id).is_yuv != 0; // values beyond what colours have
                ASSERT_TRUE(lossy || picture.content() == before) << fcc_name(id);
            }
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
    const auto lines = times.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].substr(0, 60), "{img_pipe::transform_state::get_lut_context}           #   2");
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
