// Tone mapping against its definition in double precision: kernels, measured factors, their filters, and the roads of
// the pipe.
#include "kernel_test.h"

#include <img_pipe/tonemapping.h>
#include <img_pipe/transform_pipe.h>

#include <support/failing_memory.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>

using namespace kernel_test;

namespace {

struct layout {
    const char (&id)[5];
    int bits;           // of a sample; 32: float
    const char* mosaic; // colours of the 2 x 2 cell, line by line; null: grey
    unsigned shift;     // of 16 bits, that the sample's own are at the top of
};
#define PHASES(bg, gb, gr, rg, bits, shift)                                                                            \
    {bg, bits, "BGGR", shift}, {gb, bits, "GBRG", shift}, {gr, bits, "GRBG", shift}, { rg, bits, "RGGB", shift }
const layout layouts[] = {{"Y800", 8, nullptr, 0},
                          {"Y10 ", 10, nullptr, 6},
                          {"Y12 ", 12, nullptr, 4},
                          {"Y16 ", 16, nullptr, 0},
                          {"Y10p", 10, nullptr, 6},
                          {"Y10P", 10, nullptr, 6},
                          {"Y12p", 12, nullptr, 4},
                          {"Y12P", 12, nullptr, 4},
                          {"Y1DP", 12, nullptr, 4},
                          {"MONf", 32, nullptr, 0},
                          PHASES("BA81", "GBRG", "GRBG", "RGGB", 8, 0),
                          PHASES("BG10", "GB10", "BA10", "RG10", 10, 6),
                          PHASES("BG12", "GB12", "BA12", "RG12", 12, 4),
                          PHASES("BG16", "GB16", "BA16", "RG16", 16, 0),
                          PHASES("BGAp", "GBAp", "GRAp", "RGAp", 10, 6),
                          PHASES("BGAP", "GBAP", "GRAP", "RGAP", 10, 6),
                          PHASES("BGCp", "GBCp", "GRCp", "RGCp", 12, 4),
                          PHASES("BGCP", "GBCP", "GRCP", "RGCP", 12, 4),
                          PHASES("BGDP", "GBDP", "GRDP", "RGDP", 12, 4),
                          PHASES("BGf0", "GBf0", "BAf0", "RGf0", 32, 0)};

const layout& layout_of_id(const char* id) {
    return *std::ranges::find_if(layouts, [&](const layout& l) { return fcc(l.id) == fcc_from_text(id); });
}

// Samples as numbers: of 255, of 65535 with the bits at the top, or floats.
using samples = std::vector<double>;

samples read(const layout& f, const img_descriptor& v) {
    samples out;
    const bit_packing p = bit_packing_of(v.format);
    for (int y = 0; y < v.height; ++y)
        for (int x = 0; x < v.width; ++x)
            out.push_back(f.bits == 32 ? static_cast<double>(real(line(v, y) + 4 * x))
                                       : p.get(line(v, y), static_cast<std::size_t>(x)) << f.shift);
    return out;
}

// Random pictures of a brightness that varies over the image, as deep as the format.
void fill(const layout& f, const image& to, unsigned seed, double light = 1) {
    std::mt19937 random(seed);
    const img_descriptor& v = to.view;
    const bit_packing p = bit_packing_of(v.format);
    for (int y = 0; y < v.height; ++y)
        for (int x = 0; x < v.width; ++x) {
            const double place = (1.0 + x + y) / (v.width + v.height),
                         noise = static_cast<double>(random() % 1000) / 1000;
            const auto value = static_cast<float>(std::min(1.0, light * place * (0.2 + 0.8 * noise)));
            if (f.bits == 32)
                put_real(line(v, y) + 4 * x, value);
            else
                p.put(line(v, y), static_cast<std::size_t>(x),
                      static_cast<unsigned>(value * (f.bits == 8 ? 255 : 65535)) >> f.shift);
        }
}

int mirrored(int i, int n) { return n == 1 ? 0 : i >= n ? 2 * (n - 1) - i : i; }

// The samples whose mean is the luminance at (x, y).
std::vector<double> cell(const layout& f, const samples& s, int w, int h, int x, int y) {
    const auto at = [&](int i, int j) {
        return s[static_cast<std::size_t>(mirrored(y + j, h) * w + mirrored(x + i, w))];
    };
    if (f.mosaic == nullptr) return {at(0, 0)};
    if (f.bits == 32) return {at(0, 0), at(1, 0), at(0, 1), at(1, 1)};
    const auto colour = [&](int i, int j) { return f.mosaic[(y + j) % 2 * 2 + (x + i) % 2]; };
    const int third = colour(0, 1) != colour(0, 0) && colour(0, 1) != colour(1, 0) ? 0 : 1;
    return {at(0, 0), at(1, 0), at(third, 1)};
}

double full(const layout& f) { return f.bits == 32 ? 1 : f.bits == 8 ? 255 : 65535; }

double adaptation(const tonemapping_factors& t, double k) {
    const double a = static_cast<double>(t.global_brightness), g = static_cast<double>(t.mean);
    return std::pow(std::exp(-static_cast<double>(t.intensity)) * ((1 - a) / 65535 * std::max(k, 1.0) + a * g),
                    static_cast<double>(t.exponent));
}

samples mapped(const layout& f, const samples& s, int w, int h, const tonemapping_factors& t) {
    samples out;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const std::vector<double> c = cell(f, s, w, h, x, y);
            const double mean = std::accumulate(c.begin(), c.end(), 0.0) / static_cast<double>(c.size()) / full(f);
            const double k =
                f.bits == 8 ? 256 * std::floor(mean * 255 + 1e-9) : std::floor(std::min(mean, 1.0) * 65535 + 1e-9);
            const double p = s[static_cast<std::size_t>(y * w + x)] / full(f);
            const double r = p / (p + adaptation(t, k)) * static_cast<double>(t.scale) + static_cast<double>(t.offset);
            out.push_back(std::clamp(r, 0.0, 1.0) * full(f));
        }
    return out;
}

double tolerance(const layout& f) {
    return f.bits == 8 ? 1 : f.bits == 32 ? 0.0003 : f.shift == 0 ? 16 : 16 + (1 << f.shift);
}

void expect_near(const layout& f, const samples& want, const samples& got, const std::string& where) {
    for (std::size_t i = 0; i < want.size(); ++i) {
        const double whole = f.bits == 32 ? want[i] : std::floor(want[i]);
        ASSERT_NEAR(whole, got[i], tolerance(f)) << f.id << ' ' << where << " sample " << i;
    }
}

tonemapping_stretch stretch_of(const tonemapping_factors& t) { return {t.scale, t.offset, t.exponent, t.mean}; }

const tonemapping_factors factor_sets[] = {
    {0, 0, 0.3F, 0.5F, 1.7F, 0},     {3, 0.4F, 0.2F, 0.8F, 1.2F, -0.1F}, {-2, 1, 0.6F, 0.3F, 4, -0.3F},
    {8, 0, 0.5F, 1.1F, 1.01F, 0.0F}, {-8, 0.1F, 0.05F, 0.45F, 80, 0.2F},
};

// The kernel's parameters out of tables of the factors; the tables live as long as the object.
struct kernel_tables {
    explicit kernel_tables(const tonemapping_factors& t) {
        table.build(t.intensity, t.global_brightness, t.mean, t.exponent);
        params = {t.scale, t.offset, table.adaptation(), table.adaptation_scaled(),
                  table.byte_table(t.scale, t.offset)};
    }
    adaptation_table table;
    tonemapping_params params;
};

} // namespace

// Every format and level, from one image to another in strips and in place, tiny and odd images among them.
TEST(ToneMapping, KernelsEqualTheDefinition) {
    struct {
        int width, height;
    } const sizes[] = {{1, 1}, {2, 1}, {1, 2}, {3, 1}, {2, 2}, {5, 3}, {4, 8}, {36, 9}, {68, 6}, {133, 5}};
    for (const layout& f : layouts)
        for (const auto& [w, h] : sizes) {
            if (w % format_description(fcc(f.id)).pixel_group != 0) continue;
            for (const tonemapping_factors& t : factor_sets) {
                kernel_tables tables(t);
                const image from(fcc(f.id), w, h, 3);
                fill(f, from, static_cast<unsigned>(w * h));
                const samples before = read(f, from.view), want = mapped(f, before, w, h, t);
                std::vector<std::uint8_t> first;
                for (const filter_table& level : levels()) {
                    const std::string where =
                        std::to_string(w) + 'x' + std::to_string(h) + " level " + std::to_string(level[0].required_cpu);
                    const image to(fcc(f.id), w, h, 5), same(fcc(f.id), w, h, 5);
                    const kernel_fn kernel = find_kernel(level, kernel_slot::apply_tonemapping, to.view, from.view);
                    ASSERT_NE(kernel, nullptr) << f.id;
                    run(kernel, to.view, from.view, &tables.params, 0, std::min(h, 4));
                    if (h > 4) run(kernel, to.view, from.view, &tables.params, 4);
                    ASSERT_TRUE(to.frame_untouched()) << f.id << where;
                    expect_near(f, want, read(f, to.view), where);
                    if (first.empty()) first = to.content();
                    ASSERT_EQ(first, to.content()) << f.id << where;
                    for (int y = 0; y < h; ++y)
                        std::memcpy(line(same.view, y), line(from.view, y),
                                    static_cast<std::size_t>(line_stride(fcc(f.id), w)));
                    run(kernel, same.view, same.view, &tables.params);
                    ASSERT_EQ(first, same.content()) << f.id << where << " in place";
                }
            }
        }
}

namespace {

struct reference_filter {
    double value;
    std::vector<double> history;
    double push(double v) {
        if (!std::isfinite(v)) return value;
        const bool first = history.empty();
        double pushed = v;
        const bool was_full = history.size() == 21;
        history.push_back(v);
        if (was_full) {
            history.erase(history.begin());
            std::vector<double> sorted = history;
            std::ranges::sort(sorted);
            pushed = sorted[10];
        }
        value = first ? v : value + (pushed - value) / 5;
        return value;
    }
};

// The factors of a stream's frames, as they are defined.
struct reference_stream {
    reference_filter exponent{0.5, {}}, low{0, {}}, high{1, {}};
    tonemapping_factors next(const layout& f, const samples& s, int w, int h, float intensity, float global) {
        const auto luminance = [&](int x, int y) {
            const std::vector<double> c = cell(f, s, w, h, x, y);
            return std::accumulate(c.begin(), c.end(), 0.0) / static_cast<double>(c.size()) / full(f);
        };
        double least = 1e9, most = -1e9, sum = 0, logs = 0;
        int count = 0;
        for (int y = 2; y < h - 1; y += 8)
            for (int x = 2; x < w - 2; x += 8, ++count) {
                const double v = (luminance(x, y) + luminance(x + 1, y)) / 2;
                least = std::min(least, v);
                most = std::max(most, v);
                sum += v;
                logs += std::log(std::floor(v * 65535 + 1e-9) / 65535 + 2.3e-5);
            }
        if (count == 0 || most - least < 0.0001) return {};
        const double log_mean = std::exp(logs / count), span = std::log(most) - std::log(least);
        double k = (std::log(most) - log_mean) / span;
        if (k < 0) k = (std::log(most) - std::log(log_mean)) / span;
        const double m = exponent.push(k < 0 ? 0.3 : 0.3 + 0.7 * std::pow(k, 1.4));
        tonemapping_factors t{std::clamp(intensity, -8.0F, 8.0F),
                              std::clamp(global, 0.0F, 1.0F),
                              static_cast<float>(sum / count),
                              static_cast<float>(m),
                              0,
                              0};
        double from = 1e6, to = -1e6;
        for (int y = 0; y < h - 1; y += 8)
            for (int x = 0; x < w - 2; x += 8) {
                const double p = s[static_cast<std::size_t>(y * w + x)] / full(f);
                const double r = p / (p + adaptation(t, std::floor(luminance(x, y) * 65535 + 1e-9)));
                from = std::min(from, r);
                to = std::max(to, r);
            }
        const double upper = high.push(to), lower = low.push(from);
        if (upper - lower <= 0) return {};
        t.scale = static_cast<float>(1 / (upper - lower));
        t.offset = static_cast<float>(-lower / (upper - lower));
        return t;
    }
};

void expect_alike(const tonemapping_stretch& want, const tonemapping_stretch& got, const std::string& where) {
    const auto near = [&](float a, float b, const char* name) {
        EXPECT_NEAR(a, b, 2e-4 * (1 + std::abs(static_cast<double>(a)))) << where << ' ' << name;
    };
    near(want.scale, got.scale, "scale");
    near(want.offset, got.offset, "offset");
    near(want.exponent, got.exponent, "exponent");
    near(want.mean, got.mean, "mean");
}

} // namespace

// A stream of frames whose light changes, with one flash: factors by frame, and the pixels that come of them.
TEST(ToneMapping, MeasuredStreamEqualsTheDefinition) {
    for (const char* id : {"Y800", "RGGB", "BA81", "GB16", "Y16 ", "BG10", "RGCp", "Y10p", "GRDP", "GBCP"}) {
        const layout& f = layout_of_id(id);
        transform_pipe pipe;
        reference_stream reference;
        transform_params params{.tonemapping_enable = true,
                                .tonemapping_intensity = 20,
                                .tonemapping_global_brightness = 0.3F}; // acts as 8
        for (int frame = 0; frame < 27; ++frame) {
            if (frame == 3) params.tonemapping_intensity = 1;
            const image picture(fcc(f.id), 60, 44, 0);
            fill(f, picture, static_cast<unsigned>(frame), frame == 24 ? 3.0 : 0.5 + 0.01 * frame);
            const samples before = read(f, picture.view);
            const tonemapping_factors want = reference.next(f, before, 60, 44, params.tonemapping_intensity, 0.3F);
            transform_scratch scratch;
            ASSERT_TRUE(pipe.transform_in_place(picture.view, params, &scratch));
            ASSERT_TRUE(scratch.factors_set);
            const std::string where = std::string(id) + " frame " + std::to_string(frame);
            expect_alike(stretch_of(want), scratch.factors, where);
            expect_near(f, mapped(f, before, 60, 44, want), read(f, picture.view), where);
        }
    }
}

// What is no number leaves the filter as it is; all else of it: the stream above.
TEST(ToneMapping, FilterIgnoresWhatIsNoNumber) {
    tonemap_filter filter{};
    filter.value = 0.5F;
    EXPECT_EQ(smooth(std::numeric_limits<float>::infinity(), filter), 0.5F);
    EXPECT_EQ(smooth(2, filter), 2) << "nothing was pushed before";
    EXPECT_EQ(smooth(std::numeric_limits<float>::quiet_NaN(), filter), 2);
    EXPECT_FLOAT_EQ(smooth(3, filter), 2.2F);
}

// What cannot be measured stays as it is, and leaves the stream's filters alone.
TEST(ToneMapping, ImagesWithoutStatisticsAreLeftAlone) {
    for (const char* id : {"Y800", "RGGB", "RG16", "Y12p"}) {
        const layout& f = layout_of_id(id);
        transform_pipe pipe, fresh;
        const transform_params params{.tonemapping_enable = true};
        struct {
            int width, height;
            bool flat;
        } const rows[] = {{60, 44, true}, {60, 1, false}, {2, 44, false}, {4, 3, false}, {60, 2, false}};
        for (const auto& [w, h, flat] : rows) {
            const image picture(fcc(f.id), w, h, 0);
            fill(f, picture, 3);
            if (flat) std::memset(picture.memory.bytes + image::front, 0x55, picture.memory.size - image::front);
            const auto before = picture.content();
            transform_scratch scratch;
            ASSERT_TRUE(pipe.transform_in_place(picture.view, params, &scratch));
            EXPECT_TRUE(picture.content() == before) << id << ' ' << w << 'x' << h;
            EXPECT_TRUE(scratch.factors_set && scratch.factors.scale == 0);
        }
        const image one(fcc(f.id), 60, 44, 0), other(fcc(f.id), 60, 44, 0);
        for (const image* i : {&one, &other}) fill(f, *i, 4);
        ASSERT_TRUE(pipe.transform_in_place(one.view, params));
        ASSERT_TRUE(fresh.transform_in_place(other.view, params));
        EXPECT_TRUE(one.content() == other.content()) << id;
    }
}

// Factors of one pass serve another on the same frame, a second pass maps nothing, and no number does harm.
TEST(ToneMapping, FactorsGivenBackAndFixed) {
    const image first(fcc("RGGB"), 60, 44, 0), again(fcc("RGGB"), 60, 44, 0);
    for (const image* i : {&first, &again}) fill(layout_of_id("RGGB"), *i, 9, 0.4);
    const auto before = first.content();
    transform_params params{.tonemapping_enable = true, .tonemapping_intensity = 2};
    transform_scratch scratch;
    transform_pipe pipe, other;
    ASSERT_TRUE(pipe.transform_in_place(first.view, params, &scratch));
    EXPECT_FALSE(first.content() == before);
    params.tonemapping_fixed = true;
    params.tonemapping_factors = scratch.factors;
    const auto once = first.content();
    ASSERT_TRUE(other.transform_in_place(again.view, params));
    EXPECT_TRUE(again.content() == once);
    scratch.second_pass = true;
    ASSERT_TRUE(pipe.transform_in_place(first.view, params, &scratch));
    EXPECT_TRUE(first.content() == once) << "second pass";
    for (float tonemapping_stretch::*member : {&tonemapping_stretch::scale, &tonemapping_stretch::offset,
                                               &tonemapping_stretch::exponent, &tonemapping_stretch::mean})
        for (const float bad : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
            params.tonemapping_factors = scratch.factors;
            params.tonemapping_factors.*member = bad;
            ASSERT_TRUE(pipe.transform_in_place(first.view, params));
            EXPECT_TRUE(first.content() == once);
        }
    // Parameters out of their range mean its end in both forms.
    params.tonemapping_factors = scratch.factors;
    for (const auto& [beyond, end] : {std::pair{20.0F, 8.0F}, {-20.0F, -8.0F}}) {
        const image far(fcc("RGGB"), 60, 44, 0), near(fcc("RGGB"), 60, 44, 0);
        for (const image* i : {&far, &near}) {
            fill(layout_of_id("RGGB"), *i, 9, 0.4);
            params.tonemapping_intensity = i == &far ? beyond : end;
            params.tonemapping_global_brightness = i == &far ? 3 : 1;
            transform_pipe fresh;
            ASSERT_TRUE(fresh.transform_in_place(i->view, params));
        }
        EXPECT_TRUE(far.content() == near.content()) << beyond;
    }
    params.tonemapping_factors = {1e30F, -1e30F, 1e30F, -5};
    EXPECT_TRUE(pipe.transform_in_place(first.view, params)) << "any numbers";
}

TEST(ToneMapping, WithoutMemoryAnImageStaysAsItIs) {
    transform_params params{.max_concurrency = 2,
                            .wb_enable = true,
                            .wb_gain = {1.6F, 1, 1, 1},
                            .brightness = 9,
                            .gamma = 0.8F,
                            .tonemapping_enable = true};
    for (const char* id : {"RGGB", "RG16", "Y800"})
        for (const int sharpness : {0, 5})
            for (int successes = 0;; ++successes) {
                params.sharpness = sharpness;
                const image picture(fcc_from_text(id), 60, 200, 0);
                fill(layout_of_id(id), picture, 9, 0.4);
                const auto before = picture.content();
                transform_pipe pipe;
                bool done = false;
                failing_memory::fail(successes);
                try {
                    done = pipe.transform_in_place(picture.view, params);
                } catch (const std::bad_alloc&) {
                }
                if (failing_memory::stop() == 0) break; // there was enough
                EXPECT_TRUE(done || picture.content() == before) << id << ' ' << sharpness << ' ' << successes;
            }
}

// The bytes' table belongs to a stretch, too: with the adaptation unchanged another stretch gives another table.
TEST(ToneMapping, ByteTableFollowsTheStretch) {
    adaptation_table table;
    table.build(0, 0, 0.5F, 0.5F);
    const std::uint8_t narrow = table.byte_table(1, 0)[256 * 100 + 100];
    EXPECT_GT(table.byte_table(1.5F, 0)[256 * 100 + 100], narrow + 20);
}

// White balance comes before, everything else behind; the source of a conversion is not written to.
TEST(ToneMapping, ComesBetweenWhiteBalanceAndTheRest) {
    for (const auto& [id, out] : {std::pair{"RGGB", fcc("BGR4")},
                                  {"GB16", fcc("RGB6")},
                                  {"GRBG", fcc("I420")},
                                  {"BG16", fcc("Y800")},
                                  {"Y800", fcc("BGR3")},
                                  {"Y16 ", fcc("Y800")}}) {
        const layout& f = layout_of_id(id);
        const image source(fcc(f.id), 60, 44, 4), steps(fcc(f.id), 60, 44, 4);
        const image result(out, 60, 44, 0), expected(out, 60, 44, 0);
        for (const image* i : {&source, &steps}) fill(f, *i, 12);
        const auto before = source.content();
        const transform_params balance{.wb_enable = true, .wb_gain = {1.6F, 1, 0.8F, 1}},
            tones{.tonemapping_enable = true, .tonemapping_intensity = 1.5F},
            rest{.saturation = 1.3F, .brightness = 9, .sharpness = 5, .gamma = 0.8F};
        transform_params all = rest;
        all.wb_enable = true;
        std::ranges::copy(balance.wb_gain, all.wb_gain);
        all.tonemapping_enable = true;
        all.tonemapping_intensity = 1.5F;
        transform_pipe whole, a, b, c;
        ASSERT_TRUE(whole.transform(result.view, source.view, all)) << id;
        EXPECT_TRUE(source.content() == before) << id;
        if (f.mosaic != nullptr) {
            ASSERT_TRUE(a.transform_in_place(steps.view, balance));
        }
        ASSERT_TRUE(b.transform_in_place(steps.view, tones));
        ASSERT_TRUE(c.transform(expected.view, steps.view, rest));
        EXPECT_TRUE(result.content() == expected.content()) << id;
        // Packed or not, a stream takes memory once.
        const std::uint64_t taken = whole.allocations();
        ASSERT_TRUE(whole.transform(result.view, source.view, all));
        EXPECT_EQ(whole.allocations(), taken) << id;
    }
}
