// Single steps of the automatic functions, by numbers worked out by hand.
#include "../src/auto_alg/auto_step.h"
#include "../src/auto_alg/focus.h"
#include "../src/auto_alg/pixel_reader.h"
#include "../src/auto_alg/white_balance.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <initializer_list>
#include <limits>
#include <memory>
#include <string>
#include <vector>

using namespace auto_alg;
using namespace img_pipe;

// Exposure 1000 of 100 to 10000, gain 6 of 0 to 12, iris 40 of 10 to 100.
TEST(AutoStep, OneControlMovesByItsPart) {
    struct {
        const char* why;
        float brightness, reference;
        bool exposure, gain, iris;
        float granularity;
        std::int32_t want_exposure;
        float want_gain;
        std::int32_t want_iris;
    } const rows[] = {
        {"right", 0.5F, 0.5F, true, true, true, 0, 1000, 6, 40},
        {"dead band below", 0.52F, 0.5F, true, true, true, 0, 1000, 6, 40},
        {"dead band above", 0.485F, 0.5F, true, true, true, 0, 1000, 6, 40},
        {"half as bright: exposure first", 0.25F, 0.5F, true, true, true, 0, 1333, 6, 40},
        {"twice as bright: gain first, 6 dB / 3 down", 1.0F, 0.5F, true, true, true, 0, 1000, 4, 40},
        {"then iris", 1.0F, 0.5F, true, false, true, 0, 1000, 6, 35},
        {"then exposure", 1.0F, 0.5F, true, false, false, 0, 833, 6, 40},
        {"iris before gain upwards", 0.25F, 0.5F, false, true, true, 0, 1000, 6, 50},
        {"gain last", 0.25F, 0.5F, false, true, false, 0, 1000, 8, 40},
        {"less than half the granularity", 0.25F, 0.5F, true, true, true, 700, 1000, 6, 50},
        {"more than half of it", 0.25F, 0.5F, true, true, true, 600, 1333, 6, 40},
        {"black counts as 0.004", 0, 0.5F, true, false, false, 0, 10000, 6, 40},
        {"nothing is on", 0.1F, 0.5F, false, false, false, 0, 1000, 6, 40},
    };
    for (const auto& row : rows) {
        const auto_step step =
            calc_auto_step(row.brightness, row.reference, {row.exposure, 100, 10000, 1000, row.granularity, 0},
                           {row.gain, 0, 12, 6, true, 6}, {row.iris, 10, 100, 40, false});
        EXPECT_EQ(step.exposure, row.want_exposure) << row.why;
        EXPECT_NEAR(step.gain, row.want_gain, 1e-4) << row.why;
        EXPECT_EQ(step.iris, row.want_iris) << row.why;
    }
    const auto_step outside = calc_auto_step(0.5F, 0.5F, {true, 10000, 2000, 1000, 0, 0}, {true, 12, 7, 6, true, 6},
                                             {true, 100, 50, 40, false});
    EXPECT_EQ(outside.exposure, 2000) << "limits in the wrong order hold, in the dead band too";
    EXPECT_EQ(outside.gain, 7);
    EXPECT_EQ(outside.iris, 50);
    const auto_step linear = calc_auto_step(0.25F, 0.5F, {}, {true, 1, 16, 3, false, 6}, {});
    EXPECT_FLOAT_EQ(linear.gain, 4) << "a factor goes in thirds";
    const auto_step nan = calc_auto_step(0.25F, 0.5F, {true, 100, 1000, std::numeric_limits<float>::quiet_NaN(), 0, 0},
                                         {true, std::numeric_limits<float>::quiet_NaN(), 12, 6, true, 6}, {});
    EXPECT_EQ(nan.exposure, 133) << "from the lowest";
    EXPECT_EQ(nan.gain, 6) << "without limits left alone";
}

TEST(AutoStep, BrightRecordsLengthenAStepAndNeverStartOne) {
    EXPECT_FLOAT_EQ(reference_brightness(0, 0), 0.4F);
    EXPECT_FLOAT_EQ(reference_brightness(51, 0.2F), 0.2F);
    EXPECT_NEAR(reference_brightness(102, 1), 0.425 * 0.425 * 0.425, 1e-3);
    EXPECT_FLOAT_EQ(reference_brightness(255, 1), 1) << "white is wanted";
    for (unsigned wanted = 1; wanted < 256; ++wanted)
        for (float share = 0; share <= 1; share += 0.01F) {
            const float reference = reference_brightness(wanted, share), whole = static_cast<float>(wanted) / 255;
            // So many records are at least bright, so the mean alone asks for less light, and a third of the way on
            // either scale does not go past the wanted brightness.
            if (reference < whole) {
                ASSERT_GT(share * 240 / 255, whole * 0.9999F);
                ASSERT_GE(std::cbrt(reference / (share * 240 / 255)), whole / (share * 240 / 255) * 0.999F);
            }
        }
}

TEST(WhiteBalanceSteps, GoByAQuarterOrByOne) {
    const std::vector<byte_record> tinted(100, byte_record{100, 120, 110, 120}); // means 100, 120, 110
    struct {
        const char* why;
        float gain[3];
        bool once;
        int want[3]; // in 1/64
        bool done;
    } const rows[] = {
        {"continuous: red up, green is at its least", {1, 1, 1}, false, {65, 64, 64}, false},
        {"continuous: green down", {1, 1.5F, 1}, false, {65, 95, 64}, false},
        {"once: quarters of 10, green at its least", {1, 1, 1}, true, {66, 64, 64}, false},
        {"once: green down by 2", {1, 1.5F, 1}, true, {66, 94, 64}, false},
        {"a common excess is taken away", {1.25F, 1.25F, 1.25F}, false, {65, 64, 64}, false},
        {"once: all above the least come down by one", {1, 1.5F, 1.5F}, true, {65, 93, 95}, false},
    };
    for (const auto& row : rows) {
        const balance_result r = exec_auto_whitebalance_steps_on_pixels(tinted, row.gain, row.once);
        for (int i = 0; i < 3; ++i) EXPECT_EQ(r.gain[i] * 64, row.want[i]) << row.why << ' ' << i;
        EXPECT_EQ(r.done, row.done) << row.why;
    }
    const std::vector<byte_record> grey(50, byte_record{80, 81, 80, 80});
    EXPECT_TRUE(exec_auto_whitebalance_steps_on_pixels(grey, {1.5F, 1, 2}, false).done) << "within a count";
    // A camera whose gains go below 1: grey with a gain of a half is not grey with the least one, which is 1.
    const balance_result raised = exec_auto_whitebalance_steps_on_pixels(grey, {0.5F, 1, 1}, true);
    EXPECT_EQ(raised.gain[0], 1);
    EXPECT_FALSE(raised.done) << "a value changed";
    // A tenth of the records is grey: it alone counts, whatever the colours of the rest.
    std::vector<byte_record> mixed(90, byte_record{200, 20, 20, 20});
    mixed.insert(mixed.end(), 10, byte_record{90, 90, 90, 90});
    EXPECT_TRUE(exec_auto_whitebalance_steps_on_pixels(mixed, {1, 1, 1}, true).done);
    mixed.erase(mixed.end() - 4, mixed.end());
    EXPECT_FALSE(exec_auto_whitebalance_steps_on_pixels(mixed, {1, 1, 1}, true).done) << "too few grey ones";
    EXPECT_TRUE(exec_auto_whitebalance_steps_on_pixels({}, {1, 1, 1}, true).done);
}

// A camera whose red ends at 1.3: the others settle, and what is wanted of it is the same with every pass.
TEST(WhiteBalanceSteps, RestWhereACameraCutsAGain) {
    for (int blue = 90; blue < 200; blue += 7) {
        float gain[3] = {1, 1, 1};
        std::array<float, 3> last{};
        for (int pass = 0; pass < 200; ++pass) {
            const auto lit = [&](int i, int light) {
                return static_cast<std::uint8_t>(std::lround(static_cast<float>(light) * gain[i]));
            };
            const std::vector<byte_record> seen(10, byte_record{lit(0, 120), lit(1, 200), lit(2, blue), lit(1, 200)});
            const balance_result r = exec_auto_whitebalance_steps_on_pixels(seen, gain, false);
            if (pass >= 190) {
                EXPECT_EQ((std::array{r.gain[0], r.gain[1], r.gain[2]}), last) << blue << ' ' << pass;
            }
            last = {r.gain[0], r.gain[1], r.gain[2]};
            for (int i = 0; i < 3; ++i) gain[i] = i == 0 ? std::min(r.gain[i], 1.3F) : r.gain[i];
        }
        EXPECT_EQ(gain[0], 1.3F);
    }
}

// What is grey is so at 4000 K alone.
TEST(WhiteBalanceByTemperature, ContinuousEndsInTheRowItFound) {
    temperature_table table;
    for (float(&row)[3] : table.gain) row[0] = 4, row[1] = row[2] = 1;
    table.gain[(4000 - temperature_table::lowest) / temperature_table::step][0] = 1;
    const auto samples = std::make_unique<sample_array>();
    samples->count = 10;
    std::fill_n(samples->byte_places, 10, byte_record{100, 100, 100, 100});
    white_balance_params params;
    params.continuous = true;
    params.table = &table;
    for (const std::int32_t from : {3000, 3999, 9000}) {
        temperature_state state{from};
        balance_result last{};
        for (int pass = 0; pass < 40; ++pass) last = balance_by_temperature(*samples, params, state);
        EXPECT_EQ(last.gain[0], 1) << from << ": " << state.current << " K";
        EXPECT_TRUE(last.done);
    }
}

namespace {

// 3 x 3 blocks; texture in one.
struct blocks {
    explicit blocks(int column, int line) : memory(384 * 384, 100) {
        for (int y = 128 * line; y < 128 * (line + 1); ++y)
            for (int x = 128 * column; x < 128 * (column + 1); ++x)
                memory[static_cast<std::size_t>(y * 384 + x)] = static_cast<std::uint8_t>(80 + 40 * (x / 2 % 2));
    }
    double score(int block) {
        const img_descriptor view = make_view(memory.data(), 384 * 384, fcc("Y800"), 384, 384);
        return measure_focus(view, {0, 0, 384, 384}, block).score;
    }
    std::vector<std::uint8_t> memory;
};

} // namespace

TEST(FocusScore, NeighboursCountAnEighthAndTheMiddleMost) {
    blocks middle(1, 1), corner(0, 0), right(2, 1);
    EXPECT_NEAR(middle.score(5) / middle.score(4), 1.0 / 8 * 60 * 60 / (93.3333 * 93.3333), 1e-3);
    EXPECT_NEAR(right.score(5) / middle.score(4), 60 * 60 / (93.3333 * 93.3333), 1e-3);
    EXPECT_GT(corner.score(0), 0);
    EXPECT_EQ(corner.score(1), 0) << "the first block is nobody's neighbour";
    EXPECT_EQ(corner.score(4), 0);
    EXPECT_EQ(middle.score(6), middle.score(2)) << "all others are";
    EXPECT_EQ(
        measure_focus(make_view(middle.memory.data(), 384 * 384, fcc("Y800"), 384, 384), {0, 0, 384, 384}, -1).block,
        4);
}

// The gains of a row, red, green, blue.
TEST(TemperatureTable, LightsCorrectTheGainsOfBlackBodies) {
    const auto row_of = [](std::initializer_list<calibrated_light> lights, int kelvin) {
        temperature_table table;
        make_temperature_table(std::vector(lights), table);
        const float(&row)[3] = table.gain[(kelvin - temperature_table::lowest) / temperature_table::step];
        return std::array{row[0], row[1], row[2]};
    };
    const auto expect_gains = [](const std::array<float, 3>& row, float red, float green, float blue) {
        EXPECT_NEAR(row[0], red, 0.002F);
        EXPECT_NEAR(row[1], green, 0.002F);
        EXPECT_NEAR(row[2], blue, 0.002F);
    };
    // exp(c2 / wavelength * (1 / T - 1 / 6500)), over the least of the three
    expect_gains(row_of({}, 6500), 1, 1, 1);
    expect_gains(row_of({}, 3000), 1, 1.614F, 3.706F);
    expect_gains(row_of({}, 10000), 1.481F, 1.283F, 1);
    const calibrated_light lamp{3000, {2, 2, 5}}, sky{6000, {1.5F, 1, 1.2F}}, none{0, {9, 1, 1}};
    for (const auto& lights : {std::initializer_list<calibrated_light>{lamp, none, sky}, {sky, lamp}}) {
        expect_gains(row_of(lights, 3000), 1, 1, 2.5F);
        expect_gains(row_of(lights, 6000), 1.5F, 1, 1.2F);
        // Between them half of both corrections at the middle of the reciprocals.
        const auto middle = row_of(lights, 4000), low = row_of({lamp}, 4000), high = row_of({sky}, 4000);
        EXPECT_NEAR(std::log(middle[2] / middle[0]), (std::log(low[2] / low[0]) + std::log(high[2] / high[0])) / 2,
                    0.002F);
    }
    // One light moves all rows alike.
    expect_gains(row_of({{6500, {1.5F, 1, 2}}}, 3000), 1, 1.076F, 4.941F);
    constexpr float none_at_all = std::numeric_limits<float>::quiet_NaN();
    for (const float gain : row_of({{none_at_all, {2, 1, 1}}, {3e38F, {none_at_all, -1, 1e30F}}}, 5000))
        EXPECT_TRUE(std::isfinite(gain) && gain >= 1) << gain;
}

// Samples that are read by groups are those that are read one by one, from every place of a line on.
TEST(AutoFocus, PackedSamplesByGroups) {
    for (const char* name : {"Y10p", "Y10P", "Y12p", "Y12P", "Y1DP"})
        for (const std::int32_t width : {1, 7, 23}) {
            const std::uint32_t id = img_pipe::fcc_from_text(name);
            std::vector<std::uint8_t> memory(img_pipe::image_size(id, width, 2));
            for (std::size_t i = 0; i < memory.size(); ++i) memory[i] = static_cast<std::uint8_t>(i * 73 + 41);
            const auto view = make_view(memory.data(), static_cast<std::uint32_t>(memory.size()), id, width, 2);
            const pixel_reader reader(view);
            for (std::int32_t x = 0; x < width; ++x) {
                std::vector<std::int16_t> details(static_cast<std::size_t>(width - x));
                reader.details(x, 1, width - x, details.data());
                for (std::int32_t k = 0; k < width - x; ++k)
                    ASSERT_EQ(details[static_cast<std::size_t>(k)], reader.sample(x + k, 1) >> 6)
                        << name << ' ' << x << '+' << k;
            }
        }
}

// Light on the left half of each field and dark on the right: lines take the one and the other in turn.
TEST(Sampling, EverySecondLineIsMovedByHalfAField) {
    constexpr int field = 8, wide = field * sample_columns, high = 4 * sample_lines;
    std::vector<std::uint8_t> memory(static_cast<std::size_t>(wide) * high);
    for (int at = 0; at < wide * high; ++at) memory[static_cast<std::size_t>(at)] = at % field < field / 2 ? 200 : 100;
    const auto samples = std::make_unique<sample_array>();
    for (const auto id : {fcc("Y800"), fcc("RGGB")}) {
        auto_sample_by_img(make_view(memory.data(), wide * high, id, wide, high), {0, 0, wide, high}, *samples);
        ASSERT_EQ(samples->count, most_samples);
        int light = 0;
        for (const byte_record& r : samples->bytes()) light += r.g == 200 ? 1 : 0;
        EXPECT_EQ(light, most_samples / 2) << fcc_name(id);
    }
}

// Two things at different distances, the sharper of them in focus between the coarse positions only: the run keeps to
// the block that was best over these.
TEST(AutoFocus, KeepsToTheBlockOfTheCoarseSearch) {
    auto_focus focus;
    auto_pass_params p;
    p.focus = {true, 0, 0, 1100, 1, false}; // coarse positions at every hundred
    std::vector<std::uint8_t> memory(256 * 128);
    const img_descriptor view = make_view(memory.data(), 256 * 128, fcc("Y800"), 256, 128);
    std::int64_t lens = 0;
    for (int frame = 0; frame < 600; ++frame) {
        const double far = std::abs(static_cast<double>(lens) - 400), near = std::abs(static_cast<double>(lens) - 350);
        // The near one is the first block, which counts as nobody's neighbour.
        const double contrast[2] = {near < 40 ? 100 - near : 0, 40 / (1 + far / 200)};
        for (int at = 0; at < 256 * 128; ++at)
            memory[static_cast<std::size_t>(at)] =
                static_cast<std::uint8_t>(120 + (at / 2 % 2 == 0 ? -1 : 1) * contrast[at / 128 % 2]);
        p.block_id = static_cast<std::uint64_t>(frame);
        p.time_ns = p.block_id * 100'000'000;
        const auto_focus::step step = focus.advance(view, p);
        if (step.changed) lens = step.position;
        if (step.done) break;
    }
    EXPECT_EQ(lens, 400);
}
