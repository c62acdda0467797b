// Tone, matrix, sharpness and denoise on every level, against formulas in double precision.
#include "kernel_test.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>

using namespace kernel_test;

namespace {

struct layout {
    const char (&id)[5];
    int channels, size; // stored beside each other, bytes of each
    double full;
};
const layout layouts[] = {{"Y800", 1, 1, 255}, {"Y16 ", 1, 2, 65535}, {"BGR3", 3, 1, 255},
                          {"BGR4", 4, 1, 255}, {"RGB6", 4, 2, 65535}, {"YU8p", 1, 1, 255}};

// Sample of pixel (x, y): channels 0 to 2 are B, G, R or Y, U, V; 3 is alpha.
unsigned sample(const layout& f, const img_descriptor& v, int x, int y, int channel) {
    const int plane = f.channels == 1 ? channel : 0;
    const std::uint8_t* p = line(v, y, plane) + (x * f.channels + (plane == 0 ? channel : 0)) * f.size;
    return f.size == 1 ? p[0] : static_cast<unsigned>(word(p));
}
bool is_planar(const layout& f) { return fcc(f.id) == fcc("YU8p"); }
int colours(const layout& f) { return f.channels == 1 && !is_planar(f) ? 1 : 3; }

double luma(const layout& f, const img_descriptor& v, int x, int y) {
    if (f.channels == 1) return sample(f, v, x, y, 0) * 65535.0 / f.full;
    const double sum =
        (1868.0 * sample(f, v, x, y, 0) + 9617.0 * sample(f, v, x, y, 1) + 4899.0 * sample(f, v, x, y, 2)) / 16384;
    return f.size == 1 ? std::floor(sum + 0.5) * 257 : sum;
}

using wanted_colour = std::function<double(const img_descriptor& from, int x, int y, int channel)>;

// Every level gives the wanted colours, and in place the same as elsewhere.
void check(const layout& f, kernel_slot slot, const void* params, const wanted_colour& want, double tolerance,
           int smooth) {
    for (const std::int32_t width : {2, 3, 8, 17, 33, 70, 1040})
        for (const std::int32_t height : {2, 7}) {
            const image from(fcc(f.id), width, height, 3), to(fcc(f.id), width, height, width % 3);
            smooth == 0 ? from.noise(31) : from.noise(31, 100, static_cast<unsigned>(smooth));
            on_each_level(slot, to, from, params, [&] {
                for (int y = 0; y < height; ++y)
                    for (int x = 0; x < width; ++x) {
                        for (int c = 0; c < colours(f); ++c)
                            ASSERT_NEAR(sample(f, to.view, x, y, c), std::clamp(want(from.view, x, y, c), 0.0, f.full),
                                        tolerance)
                                << " at " << x << ',' << y << " channel " << c;
                        if (f.channels == 4) {
                            ASSERT_EQ(sample(f, to.view, x, y, 3), f.full);
                        }
                    }
            });
            for (const filter_table& level : levels()) {
                const image same(fcc(f.id), width, height, 3);
                std::ranges::copy(from.content(), same.memory.bytes);
                run(level, slot, same, same, params);
                for (int y = 0; y < height; ++y)
                    for (int x = 0; x < width; ++x)
                        for (int c = 0; c < colours(f); ++c)
                            ASSERT_EQ(sample(f, same.view, x, y, c), sample(f, to.view, x, y, c))
                                << f.id << " in place";
            }
        }
}

} // namespace

TEST(ColourAdjust, Tone) {
    std::vector<std::uint16_t> words(65536);
    std::vector<std::uint8_t> bytes(256);
    for (std::size_t i = 0; i < 65536; ++i) words[i] = static_cast<std::uint16_t>(65535 - i);
    for (std::size_t i = 0; i < 256; ++i) bytes[i] = static_cast<std::uint8_t>(255 - i);
    const sample_params rows[] = {{{1, 1, 1, 1}, 0, nullptr, nullptr},
                                  {{1, 1, 1, 1}, 0, words.data(), bytes.data()},
                                  {{1.5F, 0.75F, 2, 1}, 514, nullptr, nullptr}};
    for (const layout& f : layouts)
        for (const sample_params& p : rows) {
            if (colours(f) == 1) continue; // one sample: with the packings
            check(
                f, kernel_slot::apply_brightness_contrast_params, &p,
                [&](const img_descriptor& from, int x, int y, int c) {
                    const double v = sample(f, from, x, y, c);
                    if (is_planar(f) && c > 0) return v;
                    const double gain = is_planar(f) ? p.gain[0] : p.gain[2 - c];
                    const double r = std::clamp(v * gain + p.offset * f.full / 65535, 0.0, f.full);
                    return p.table != nullptr ? f.full - r : r;
                },
                f.size == 1 ? 1 : 0.5, 0); // the lower half of 16 bits is cut
        }
}

TEST(ColourAdjust, Matrix) {
    const matrix_params rows[] = {{{{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}}},
                                  {{{1.5F, -0.25F, 0.1F, 0.05F}, {-0.5F, 1.75F, 0, -0.1F}, {0.2F, 0.3F, 0.4F, 0}}}};
    for (const layout& f : layouts)
        for (const matrix_params& p : rows) {
            if (colours(f) == 1) continue;
            check(
                f, kernel_slot::apply_saturation_hue_params, &p,
                [&](const img_descriptor& from, int x, int y, int c) {
                    const int row = is_planar(f) ? c : 2 - c;
                    double sum = p.m[row][3] * f.full;
                    for (int j = 0; j < 3; ++j)
                        sum += static_cast<double>(p.m[row][j]) * sample(f, from, x, y, is_planar(f) ? j : 2 - j);
                    return sum;
                },
                &p == rows ? 0 : 0.51, 0);
        }
}

TEST(ColourAdjust, SharpnessAndDenoise) {
    for (const sharpness_params p :
         {sharpness_params{0, 0}, {40, 0}, {0, 9}, {-20, 31}, {255, 3}, {1 << 30, -(1 << 30)}})
        for (const layout& f : layouts)
            for (const int smooth : {0, 30}) {
                check(
                    f, kernel_slot::transform_sharpness_denoise, &p,
                    [&](const img_descriptor& from, int x, int y, int c) {
                        const double value = sample(f, from, x, y, c);
                        if (is_planar(f) && c > 0) return value;
                        const auto mirrored = [](int i, int n) { return i < 0 ? -i : i >= n ? 2 * n - 2 - i : i; };
                        const double full_pull = std::clamp(p.denoise, 0, 31) * 257;
                        double pull = 0, detail = 0;
                        for (int dy = -1; dy <= 1; ++dy)
                            for (int dx = -1; dx <= 1; ++dx) {
                                const double d =
                                    luma(f, from, mirrored(x + dx, from.width), mirrored(y + dy, from.height)) -
                                    luma(f, from, x, y);
                                pull += std::copysign(std::max(0.0, std::min(std::abs(d), 2 * full_pull - std::abs(d))),
                                                      d) /
                                        9;
                                detail -= d * (2 - std::abs(dx)) * (2 - std::abs(dy)) / 16;
                            }
                        detail = std::copysign(std::clamp(std::abs(detail) - 257, 0.0, 8191.0), detail);
                        const double delta = pull + detail * std::clamp(p.sharpness, -32, 255) / 32;
                        return value + (f.size == 1 ? delta / 257 : delta);
                        // Sums are cut after each division by 8 or 16 and then multiplied by up to 8.
                    },
                    (p.sharpness == 0 && p.denoise <= 0) ? 0
                    : f.size == 1                        ? 1.0
                                                         : 64,
                    smooth);
            }
}
