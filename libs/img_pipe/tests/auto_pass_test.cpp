// What a pass measures, when it is due, and what any block may do to it.
#include "auto_camera.h"

#include <gtest/gtest.h>
#include <img_pipe/transform_pipe.h>

#include <limits>

using namespace auto_test;

namespace {

std::vector<std::uint32_t> vocabulary() {
    std::vector<std::uint32_t> all;
    for (std::uint32_t i = 0; format_at(i) != 0; ++i) all.push_back(format_at(i));
    return all;
}

auto_pass_params measuring() {
    auto_pass_params p;
    p.exposure = {true, 1, 100, 50, 0, 128};
    return p;
}

} // namespace

// Middle grey in every format; sizes down to a pixel, odd ones among them.
TEST(AutoPass, EveryFormatIsMeasuredOrLeftAlone) {
    const filter_table plain = get_filter_table(cpu::c);
    for (const std::uint32_t id : vocabulary()) {
        const format_description d(id);
        const bool special = d.is_polarization != 0 || d.is_pwl != 0 || d.is_hsv != 0 || id == fcc("MJPG") ||
                             fcc_name(id).starts_with("Raw") || id == fcc("YUfp");
        for (const int w : {1, 2, 7, 64, 101})
            for (const int h : {1, 2, 9}) {
                const std::uint32_t size = image_size(id, w, h);
                std::vector<std::uint8_t> memory(size == 0 ? 1 : size, 0x80);
                const img_descriptor view = make_view(memory.data(), size, id, w, h);
                const kernel_test::image half(fcc("RAW2"), w, h, 0);
                for (std::size_t i = 0; i < half.memory.size - half.front; ++i)
                    half.memory.bytes[half.front + i] = i % 2 == 0 ? 0 : 0x80;
                if (const kernel_fn pack = find_kernel(plain, kernel_slot::convert_lines, view, half.view);
                    pack != nullptr && size != 0)
                    kernel_test::run(pack, view, half.view, nullptr);
                if (d.is_float != 0)
                    for (std::size_t i = 0; i + 4 <= memory.size(); i += 4) kernel_test::put_real(&memory[i], 0.5F);
                auto_alg_state state;
                const auto r = auto_pass(state, view, measuring());
                const bool mosaic =
                    d.is_mono == 0 && d.is_yuv == 0 && id != fcc("BGR3") && id != fcc("BGR4") && id != fcc("RGB6");
                // The colours of its odd lines take more than its bytes.
                const bool too_long = id == fcc("NV12") && w % 2 != 0 && h % 4 == 2;
                const bool measured = size != 0 && !special && !too_long && (!mosaic || (w > 1 && h > 1));
                // A packed line may end inside its last sample, and a group of chroma with it.
                if (!measured) {
                    EXPECT_EQ(r.brightness, -1) << fcc_name(id) << w << 'x' << h;
                } else if (w >= 64) {
                    EXPECT_NEAR(r.brightness, 0.5, 0.02) << fcc_name(id) << w << 'x' << h;
                }
            }
    }
}

// What is measured is what the transform leaves to see, format by format.
TEST(AutoPass, ThePictureBehindTheTransformIsMeasured) {
    steered_camera b;
    enable(b, {block::auto_exposure, block::balance_in_software, block::color_matrix_enable});
    b.settings.store(block::balance_red, 2.0F);
    b.settings.store(block::balance_blue, 1.6F);
    b.settings.store(block::color_matrix, 0.8F);
    b.settings.store(block::color_matrix + 16, 0.9F);
    b.settings.store(block::brightness, std::int32_t{20});
    b.settings.store(block::gamma, 0.8F);
    int seen = 0;
    for (const std::uint32_t id : vocabulary()) {
        const std::uint32_t size = image_size(id, 64, 16);
        std::vector<std::uint8_t> memory(std::max(size, 1U), 0x50);
        if (format_description(id).is_float != 0)
            for (std::size_t i = 0; i + 4 <= memory.size(); i += 4) kernel_test::put_real(&memory[i], 0.25F);
        const img_descriptor view = make_view(memory.data(), size, id, 64, 16);
        auto_alg_state before, after;
        const auto measured = run_auto_pass(b.settings, before, view, 1, 1, b);
        if (measured.brightness < 0) continue;
        transform_pipe pipe;
        seen += pipe.transform_in_place(view, transform_params_of(b.settings)) ? 1 : 0;
        EXPECT_NEAR(measured.brightness, auto_pass(after, view, measuring()).brightness, 0.02) << fcc_name(id);
    }
    EXPECT_GT(seen, 30) << "are transformed";
}

TEST(AutoPass, FocusOfWhatCannotBeMeasuredOrMovedEndsWithoutAMove) {
    std::vector<std::uint8_t> memory(256 * 256 * 3, 60);
    auto_alg_state state;
    auto_pass_params p;
    p.focus = {true, 7, 0, 100, 1, false};
    const auto r = auto_pass(state, make_view(memory.data(), 256 * 256 * 3, fcc("HSV3"), 256, 256), p);
    EXPECT_TRUE(r.focus_done && !r.focus_changed && !r.focus_running);
    // Of a range that nobody knows, or that is shorter than the lens's step, there is nothing to search.
    for (const float high : {0.0F, 9.0F}) {
        p.focus = {true, 7, 0, high, 10, false};
        const auto none = auto_pass(state, make_view(memory.data(), 256 * 256, fcc("Y800"), 256, 256), p);
        EXPECT_TRUE(none.focus_done && !none.focus_changed && !none.focus_running) << high;
    }
    for (const int w : {0, -5}) {
        p = measuring();
        p.block_id = 100;
        p.focus.request = true;
        img_descriptor bad = make_view(memory.data(), 256 * 256, fcc("RGGB"), 256, 256);
        bad.width = bad.height = w;
        EXPECT_EQ(auto_pass(state, bad, p).brightness, -1) << "no image";
    }
}

TEST(AutoPass, PacesItself) {
    std::vector<std::uint8_t> memory(64 * 64, 60);
    const img_descriptor image = make_view(memory.data(), 64 * 64, fcc("Y800"), 64, 64);
    constexpr std::uint64_t ms = 1000000;
    struct {
        std::uint64_t block, time;
        bool measures;
        const char* why;
    } const rows[] = {
        {10, 1000 * ms, true, "the first"},      {11, 1033 * ms, false, "too soon"},
        {12, 1066 * ms, false, "two frames on"}, {13, 1100 * ms, true, "the third"},
        {14, 1150 * ms, false, "one frame on"},  {15, 1301 * ms, true, "long ago"},
        {99, 1340 * ms, false, "too soon"},      {99, 1301 * ms, true, "the same time"},
        {3, 1302 * ms, true, "ids began anew"},  {4, 900 * ms, true, "time went back"},
        {80, 940 * ms, false, "too soon"},       {81, 950 * ms, true, "many frames on"},
    };
    auto_alg_state state;
    for (const auto& row : rows) {
        auto_pass_params p = measuring();
        p.block_id = row.block;
        p.time_ns = row.time;
        EXPECT_EQ(auto_pass(state, image, p).brightness >= 0, row.measures) << row.why;
    }
    auto_alg_state idle;
    EXPECT_EQ(auto_pass(idle, image, auto_pass_params{}).brightness, -1) << "no function";
}

// A camera's gains lie between the steps; what is grey is left alone, or each pass would write them anew.
TEST(AutoPass, GreyKeepsTheCamerasGains) {
    std::vector<std::uint8_t> memory(64 * 64 * 4, 100);
    const float half = 0.5F;
    for (const auto id : {fcc("RGGB"), fcc("RGf0")}) {
        if (id == fcc("RGf0"))
            for (std::size_t i = 0; i < memory.size(); i += 4) std::memcpy(&memory[i], &half, 4);
        auto_alg_state state;
        auto_pass_params p;
        p.white_balance.continuous = true;
        p.white_balance.gain[0] = 1.37F;
        p.white_balance.gain[2] = 2.01F;
        const auto r = auto_pass(state, make_view(memory.data(), image_size(id, 64, 64), id, 64, 64), p);
        EXPECT_FALSE(r.wb_changed) << r.wb_r << ' ' << r.wb_g << ' ' << r.wb_b;
    }
}

// Whatever the block says, results are within its limits, or as they were.
TEST(AutoPass, AnyBlockGivesBoundedResults) {
    std::mt19937_64 random(5);
    constexpr float no_number = std::numeric_limits<float>::quiet_NaN(),
                    endless = std::numeric_limits<float>::infinity();
    const float odd[] = {no_number, endless, -endless, 0, -1, 1e-40F, 3e38F, -3e38F, 1, 4e9F};
    steered_camera b;
    b.set({});
    (void)b.frame();
    const img_descriptor image = b.picture();
    struct : IAutoValuesSender {
        void send_write_auto_values_cmd() override {}
    } nobody;
    for (int i = 0; i < 4000; ++i) {
        auto_alg_state fresh;
        block_temperatures temperatures;
        for (std::size_t at = 0; at < block::full_size; at += 4) {
            const std::uint64_t r = random();
            if (r % 3 == 0)
                b.settings.store(at, odd[r / 8 % std::size(odd)]);
            else if (r % 3 == 1)
                b.settings.store(at, static_cast<std::uint32_t>(r >> 32));
            else
                b.settings.store(at, static_cast<std::uint32_t>(r >> 62));
        }
        // Changes while it is read show as another random block.
        for (std::uint64_t frame = 0; frame < 3; ++frame) {
            const auto before = auto_params_of(b.settings, frame, 0);
            const auto r = run_auto_pass(b.settings, fresh, image, frame, 0, nobody, temperatures.table_of(b.settings));
            const auto within = [](double value, const auto& limits) {
                const double one = static_cast<double>(limits.min), other = static_cast<double>(limits.max);
                return value >= std::min(one, other) && value <= std::max(one, other);
            };
            EXPECT_TRUE(!r.exposure_changed || within(r.exposure, before.exposure)) << r.exposure;
            EXPECT_TRUE(!r.gain_changed || within(static_cast<double>(r.gain), before.gain)) << r.gain;
            EXPECT_TRUE(!r.iris_changed || within(r.iris, before.iris)) << r.iris;
            for (const float gain : {r.wb_r, r.wb_g, r.wb_b}) EXPECT_TRUE(gain >= 0 && gain <= 4);
            EXPECT_TRUE(r.temperature == -1 || (r.temperature >= 2500 && r.temperature <= 10000)) << r.temperature;
            const auto t = transform_params_of(b.settings);
            EXPECT_TRUE(std::isfinite(t.gamma) && std::isfinite(t.hue) && std::isfinite(t.wb_gain[0]));
        }
    }
}

TEST(AutoPass, NeutralBlockAsksForNothing) {
    steered_camera b;
    EXPECT_FALSE(auto_function_is_on(b.settings));
    EXPECT_FALSE(transform_is_on(b.settings));
    for (const auto at : {block::auto_exposure, block::auto_gain, block::auto_iris, block::auto_white_balance,
                          block::white_balance_once, block::focus_request}) {
        b.settings.set_flag(at, true);
        EXPECT_TRUE(auto_function_is_on(b.settings)) << at;
        b.settings.set_flag(at, false);
    }
    struct {
        block::offset at;
        float value;
    } const rows[] = {{block::gamma, 1.2F}, {block::saturation, 90}, {block::hue, 10}};
    for (const auto& [at, value] : rows) {
        b.settings.set_neutral();
        b.settings.store(at, value);
        EXPECT_TRUE(transform_is_on(b.settings)) << at;
    }
    b.settings.set_neutral();
    b.settings.set_flag(block::tonemapping_enable, true);
    EXPECT_TRUE(transform_is_on(b.settings));
}
