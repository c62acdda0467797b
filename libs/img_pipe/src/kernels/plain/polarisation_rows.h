// Angle, degree and intensity of polarisation cells, cell by cell on [x, n).
#pragma once
#include "correct_rows.h"

namespace img_pipe {
namespace {

// Odd polynomial for the arc tangent on 0 to 1, to 2e-8.
constexpr float arc[] = {0.0028662257F, -0.0161657367F, 0.0429096138F, -0.0752896400F, 0.1065626393F, -0.1420889944F,
                         0.1999355085F, -0.3333314528F, 1.0F};
constexpr float half_pi = 1.57079632679F, pi = 3.14159265359F, turns = 0.159154943092F;

// The samples of the cells by angle of their filters, in degrees.
struct cell_lines {
    std::uint16_t *i90, *i45, *i135, *i0;
};
// Angle: 65536 are 180 degrees, so it wraps. Degree: 65535 is fully polarised. Intensity: mean of the four.
struct stokes_lines {
    std::uint16_t *angle, *degree, *intensity;
};

[[maybe_unused]] void split_pairs(const std::uint16_t* in, std::int32_t x, std::int32_t n, std::uint16_t* even,
                                  std::uint16_t* odd) {
    for (; x < n; ++x) {
        even[x] = in[2 * x];
        odd[x] = in[2 * x + 1];
    }
}

[[maybe_unused]] void find_stokes(const cell_lines& in, std::int32_t x, std::int32_t n, const stokes_lines& out) {
    for (; x < n; ++x) {
        const auto a = static_cast<float>(in.i90[x]), b = static_cast<float>(in.i45[x]),
                   c = static_cast<float>(in.i135[x]), d = static_cast<float>(in.i0[x]);
        const float sum = ((a + b) + (c + d)) * 0.5F, s1 = d - a, s2 = b - c;
        const float polarised = __builtin_sqrtf(s1 * s1 + s2 * s2) / (sum > 0.5F ? sum : 0.5F);
        const float h = s1 < 0 ? -s1 : s1, v = s2 < 0 ? -s2 : s2, most = h > v ? h : v;
        const float q = (h > v ? v : h) / (most > 1.0F ? most : 1.0F), square = q * q;
        float p = arc[0];
        for (int i = 1; i < 9; ++i) p = p * square + arc[i];
        p = p * q;
        if (v > h) p = half_pi - p;
        if (s1 < 0) p = pi - p;
        p = p * turns;
        if (s2 < 0) p = 1.0F - p;
        out.angle[x] = static_cast<std::uint16_t>(nearest(p * 65536.0F) & 0xFFFF);
        out.degree[x] = static_cast<std::uint16_t>(nearest((polarised < 1.0F ? polarised : 1.0F) * 65535.0F));
        out.intensity[x] = static_cast<std::uint16_t>(nearest(sum * 0.5F));
    }
}

} // namespace
} // namespace img_pipe
