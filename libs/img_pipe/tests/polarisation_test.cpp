// Polarisation images on every level, against formulas in double precision.
#include "kernel_test.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <numbers>

using namespace kernel_test;

namespace {

// Sample (x, y) of a source, its bits at the top of 16; 8 bits twice.
unsigned sample_at(const img_descriptor& v, int x, int y) {
    const bit_packing p = bit_packing_of(v.format);
    const unsigned sample = p.get(line(v, y), static_cast<std::size_t>(x));
    return p.bits == 8 ? sample * 257 : sample << (16 - p.bits);
}

struct stokes {
    double angle, degree, intensity; // in half turns; of 1; of 65535
    std::array<double, 4> samples;   // 90, 45, 135, 0
};
stokes cell(const img_descriptor& v, int cx, int cy) {
    const double a = sample_at(v, 2 * cx, 2 * cy), b = sample_at(v, 2 * cx + 1, 2 * cy),
                 c = sample_at(v, 2 * cx, 2 * cy + 1), d = sample_at(v, 2 * cx + 1, 2 * cy + 1);
    const double sum = (a + b + c + d) / 2;
    double angle = std::atan2(b - c, d - a) / (2 * std::numbers::pi);
    if (angle < 0) angle += 1;
    return {angle, sum == 0 ? 0 : std::min(1.0, std::hypot(d - a, b - c) / sum), sum / 2, {a, b, c, d}};
}

const int sizes[][2] = {{2, 2}, {4, 4}, {6, 5}, {10, 8}, {34, 7}, {66, 9}, {132, 4}};

} // namespace

TEST(Polarisation, AnglesDegreesAndIntensities) {
    struct {
        const char (&in)[5], (&out)[5];
    } const rows[] = {{"P180", "ADI1"}, {"P280", "ADC1"}, {"P180", "PPM1"}, {"P280", "PPB1"},
                      {"P180", "BGR4"}, {"P280", "BGR4"}, {"P116", "ADI2"}, {"P216", "ADC2"},
                      {"P1CP", "ADI2"}, {"P2Cp", "ADC2"}, {"P116", "PPM2"}, {"P2Cp", "PPB2"}};
    for (const auto& row : rows)
        for (const auto& size : sizes)
            for (const int part : {1, 2}) // as large as the source, and of half its size
            {
                const image source(fcc(row.in), size[0], size[1], 0),
                    result(fcc(row.out), size[0] / part, size[1] / part, 3);
                const img_descriptor &from = source.view, &to = result.view;
                source.noise(41);
                on_each_level(kernel_slot::convert_lines, result, source, nullptr, [&] {
                    const int cells_x = from.width / 2, cells_y = from.height / 2;
                    const bool wide = row.out[3] == '2', view = fcc(row.out) == fcc("BGR4"), packed = row.out[0] == 'P';
                    for (int y = 0; y < to.height; ++y)
                        for (int x = 0; x < to.width; ++x) {
                            const int cx = std::min(part == 1 ? x / 2 : x, cells_x - 1),
                                      cy = std::min(part == 1 ? y / 2 : y, cells_y - 1);
                            const stokes s = cell(from, cx, cy);
                            std::vector<double> want{s.angle * 65536, s.degree * 65535, s.intensity, 0};
                            if (packed) want.assign(s.samples.begin(), s.samples.end());
                            if (row.out[2] == 'C') {
                                const int bx = std::min(cx / 2, cells_x / 2 - 1) * 2,
                                          by = std::min(cy / 2, cells_y / 2 - 1) * 2;
                                const bool block = cells_x > 1 && cells_y > 1;
                                const auto grey = [&](int dx, int dy) {
                                    return block ? cell(from, bx + dx, by + dy).intensity : s.intensity;
                                };
                                want.insert(want.end(), {grey(0, 0), (grey(1, 0) + grey(0, 1)) / 2, grey(1, 1), 0});
                            }
                            if (view) {
                                want.clear();
                                for (const int n : {1, 3, 5}) {
                                    const double k = std::fmod(n + 6 * s.angle, 6);
                                    want.push_back(s.intensity *
                                                   (1 - s.degree * std::clamp(std::min(k, 4 - k), 0.0, 1.0)));
                                }
                                want.push_back(65535);
                            }
                            const std::uint8_t* p =
                                line(to, y) + static_cast<std::size_t>(x) * want.size() * (wide ? 2 : 1);
                            for (std::size_t i = 0; i < want.size(); ++i) {
                                const double scale = wide ? 1 : i == 0 && !packed && !view ? 256 : 257;
                                const double value = wide ? word(p + 2 * i) : p[i];
                                double off = std::abs(value - want[i] / scale);
                                if (i == 0 && !packed && !view) off = std::min(off, (wide ? 65536 : 256) - off);
                                ASSERT_LE(off, wide ? 1.1 : 0.52 + (view ? 0.5 : 0))
                                    << row.in << " to " << row.out << " sample " << i << " at " << x << ',' << y
                                    << " of " << from.width << 'x' << from.height;
                            }
                        }
                });
            }
}
