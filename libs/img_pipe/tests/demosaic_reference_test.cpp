// Demosaicing against references of its own, in double precision and pixel by pixel: interpolation corrected by the
// gradients of the sample's own colour, and plain means where colours have nothing in common. On scenes whose truth is
// known no kernel may be further from it; each site keeps its sample; a mirrored mosaic gives the mirrored picture.
#include "kernel_test.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>

using namespace kernel_test;

namespace {

constexpr std::int32_t width = 96, height = 70;
constexpr std::uint32_t bayer8[] = {fcc("BA81"), fcc("GBRG"), fcc("GRBG"), fcc("RGGB")};
constexpr std::uint32_t bayer16[] = {fcc("BG16"), fcc("GB16"), fcc("BA16"), fcc("RG16")};

// 0 blue, 1 green, 2 red at a site, from the first line's two letters.
int colour_at(std::size_t phase, int x, int y) {
    const char* const lines[4][2] = {{"BG", "GR"}, {"GB", "RG"}, {"GR", "BG"}, {"RG", "GB"}};
    const char c = lines[phase][y & 1][x & 1];
    return c == 'B' ? 0 : c == 'G' ? 1 : 2;
}

// A value of 0 to 1 by colour and place.
using scene = std::function<double(int colour, int x, int y)>;

// Discs with edges a pixel wide. Of colours that have much in common, over slow waves that are alike in all of them; or
// saturated: each channel is bright or dark, whatever the others are.
scene discs(unsigned seed, bool alike) {
    struct disc {
        double x, y, r, colour[3];
    };
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(0, 1);
    std::vector<disc> all(alike ? 24 : 30);
    for (disc& d : all) {
        d = {unit(random) * width, unit(random) * height, 0, {}};
        d.r = alike ? 4 + 20 * unit(random) * unit(random) : 3 + 12 * unit(random);
        const double grey = alike ? 0.15 + 0.7 * unit(random) : 0;
        for (double& c : d.colour)
            c = alike ? std::clamp(grey + 0.25 * (unit(random) - 0.5), 0.05, 0.95) : random() % 2 == 0 ? 0.05 : 0.9;
    }
    return [all, alike](int colour, int x, int y) {
        double v = alike ? 0.5 + 0.2 * std::sin(x * 0.31) * std::cos(y * 0.23) + 0.05 * (colour - 1) : 0.05;
        for (const disc& d : all) {
            const double inside = std::clamp(d.r - std::hypot(x - d.x, y - d.y) + 0.5, 0.0, 1.0);
            v += inside * (d.colour[colour] - v);
        }
        return v;
    };
}

// The sum of weight times sample over a cross and the diagonals of a mosaic, mirrored at its edges; without gradients
// the mean of the next samples of the colour.
double reference(const std::vector<double>& mosaic, std::size_t phase, int colour, int x, int y, bool gradients) {
    const auto at = [&](int dx, int dy) {
        const auto mirrored = [](int i, int n) { return i < 0 ? -i : i >= n ? 2 * (n - 1) - i : i; };
        return mosaic[static_cast<std::size_t>(mirrored(y + dy, height) * width + mirrored(x + dx, width))];
    };
    const int own = colour_at(phase, x, y);
    if (own == colour) return at(0, 0);
    const double sides = at(-1, 0) + at(1, 0), ends = at(0, -1) + at(0, 1);
    const double far_sides = at(-2, 0) + at(2, 0), far_ends = at(0, -2) + at(0, 2);
    const double corners = at(-1, -1) + at(1, -1) + at(-1, 1) + at(1, 1), c = at(0, 0);
    if (!gradients && colour == 1) return (sides + ends) / 4;
    if (!gradients && own != 1) return corners / 4;
    if (colour == 1) return (4 * c + 2 * (sides + ends) - far_sides - far_ends) / 8;
    if (own != 1) return (6 * c + 2 * corners - 1.5 * (far_sides + far_ends)) / 8;
    // At green: the colour stands beside it in the line, or above and below.
    const bool beside = colour_at(phase, x + 1, y) == colour;
    const double near = beside ? sides : ends, along = beside ? far_sides : far_ends,
                 across = beside ? far_ends : far_sides;
    if (!gradients) return near / 2;
    return (5 * c + 4 * near - corners - along + 0.5 * across) / 8;
}

// Mosaic of a scene in the format's counts, and its image.
struct shot {
    shot(const scene& truth, std::size_t phase_, bool wide, bool mirror_x = false, bool mirror_y = false)
        : phase(phase_), full(wide ? 65535 : 255), picture(wide ? bayer16[phase_] : bayer8[phase_], width, height, 0) {
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const int sx = mirror_x ? width - 1 - x : x, sy = mirror_y ? height - 1 - y : y;
                samples.push_back(std::nearbyint(truth(colour_at(phase, x, y), sx, sy) * full));
                bit_packing_of(picture.view.format)
                    .put(line(picture.view, y), static_cast<std::size_t>(x), static_cast<unsigned>(samples.back()));
            }
    }
    std::size_t phase;
    double full;
    image picture;
    std::vector<double> samples;
};

struct result {
    result(const filter_table& level, const shot& from)
        : wide(from.full > 255), picture(wide ? fcc("RGB6") : fcc("BGR4"), width, height, 0) {
        run(level, kernel_slot::transform_by_edge_to_dst, picture, from.picture);
    }
    int at(int colour, int x, int y) const {
        return wide ? word(line(picture.view, y) + 8 * x + 2 * colour) : line(picture.view, y)[4 * x + colour];
    }
    bool wide;
    image picture;
};

} // namespace

TEST(DemosaicReference, NoFurtherFromTheTruth) {
    for (const bool wide : {false, true})
        for (std::size_t phase = 0; phase < 4; ++phase)
            for (unsigned seed = 1; seed < 7; ++seed) {
                const bool alike = seed < 4;
                const scene truth = discs(seed, alike);
                const shot from(truth, phase, wide);
                std::vector<double> squares;
                for (const filter_table& level : levels()) {
                    const result seen(level, from);
                    double ours = 0, theirs = 0;
                    for (int y = 0; y < height; ++y)
                        for (int x = 0; x < width; ++x)
                            for (int c = 0; c < 3; ++c) {
                                const double want = truth(c, x, y) * from.full;
                                ours += std::pow(seen.at(c, x, y) - want, 2);
                                theirs += std::pow(
                                    std::clamp(reference(from.samples, phase, c, x, y, alike), 0.0, from.full) - want,
                                    2);
                                if (c == colour_at(phase, x, y)) {
                                    ASSERT_EQ(seen.at(c, x, y), from.samples[static_cast<std::size_t>(y * width + x)])
                                        << "own sample at " << x << ',' << y;
                                }
                            }
                    EXPECT_LE(ours, theirs) << "phase " << phase << " seed " << seed << (wide ? " 16" : " 8")
                                            << " level " << level[0].required_cpu;
                    squares.push_back(ours);
                }
                EXPECT_EQ(squares.front(), squares.back());
            }
}

// Noise leaves no direction preferred. A count for averages that round halves up in one order.
TEST(DemosaicReference, MirroredMosaicsGiveMirroredPictures) {
    std::mt19937 random(9);
    std::vector<double> noise(static_cast<std::size_t>(width * height));
    for (double& v : noise) v = static_cast<double>(random() % 256) / 255;
    const scene truth = [&](int, int x, int y) { return noise[static_cast<std::size_t>(y * width + x)]; };
    // Seen from the other side, an even number of columns or lines makes of a phase another.
    const struct {
        bool x, y;
        std::size_t phase_of[4];
    } mirrors[] = {{true, false, {1, 0, 3, 2}}, {false, true, {2, 3, 0, 1}}, {true, true, {3, 2, 1, 0}}};
    for (const filter_table& level : levels())
        for (const auto& mirror : mirrors)
            for (std::size_t phase = 0; phase < 4; ++phase) {
                const result straight(level, shot(truth, phase, false)),
                    mirrored(level, shot(truth, mirror.phase_of[phase], false, mirror.x, mirror.y));
                for (int y = 0; y < height; ++y)
                    for (int x = 0; x < width; ++x)
                        for (int c = 0; c < 3; ++c)
                            ASSERT_NEAR(mirrored.at(c, mirror.x ? width - 1 - x : x, mirror.y ? height - 1 - y : y),
                                        straight.at(c, x, y), 1)
                                << "phase " << phase << " at " << x << ',' << y << " colour " << c << " mirror "
                                << mirror.x << mirror.y;
            }
}
