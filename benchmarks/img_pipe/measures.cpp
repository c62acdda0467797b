#include "scenes.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

constexpr int border = 8;
using lab = std::array<double, 3>;

// CIELAB of a displayed sRGB value, white D65.
lab lab_of(const picture& p, int x, int y) {
    std::array<double, 3> linear{};
    for (int c = 0; c < 3; ++c) {
        const double v = std::clamp(static_cast<double>(p.at(c, x, y)) / 255, 0.0, 1.0);
        linear[static_cast<std::size_t>(c)] = v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
    }
    const auto [r, g, b] = linear;
    const auto f = [](double t) { return t > 216.0 / 24389 ? std::cbrt(t) : (24389.0 / 27 * t + 16) / 116; };
    const double fx = f((0.4124564 * r + 0.3575761 * g + 0.1804375 * b) / 0.95047);
    const double fy = f(0.2126729 * r + 0.7151522 * g + 0.0721750 * b);
    const double fz = f((0.0193339 * r + 0.1191920 * g + 0.9503041 * b) / 1.08883);
    return {116 * fy - 16, 500 * (fx - fy), 200 * (fy - fz)};
}

double distance(const lab& a, const lab& b) { return std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]); }

} // namespace

measures compare(const picture& truth, const picture& result) {
    double squares = 0, colour = 0;
    std::size_t count = 0, zippers = 0;
    std::vector<lab> in(truth.size()), out(truth.size());
    const auto index = [&](int x, int y) {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(truth.width) + static_cast<std::size_t>(x);
    };
    for (int y = border - 1; y <= truth.height - border; ++y)
        for (int x = border - 1; x <= truth.width - border; ++x) {
            in[index(x, y)] = lab_of(truth, x, y);
            out[index(x, y)] = lab_of(result, x, y);
        }
    for (int y = border; y < truth.height - border; ++y)
        for (int x = border; x < truth.width - border; ++x) {
            std::array<double, 3> d{};
            for (int c = 0; c < 3; ++c) {
                d[static_cast<std::size_t>(c)] = result.at(c, x, y) - truth.at(c, x, y);
                squares += d[static_cast<std::size_t>(c)] * d[static_cast<std::size_t>(c)];
            }
            const double luma = 0.299 * d[0] + 0.587 * d[1] + 0.114 * d[2];
            colour += std::hypot(0.564 * (d[2] - luma), 0.713 * (d[0] - luma));
            // A zipper: the distance to the neighbour that is most alike in the truth changes visibly.
            const std::size_t here = index(x, y);
            std::size_t like = here;
            double least = 1e9;
            for (int j = -1; j <= 1; ++j)
                for (int i = -1; i <= 1; ++i) {
                    if (i == 0 && j == 0) continue;
                    const std::size_t n = index(x + i, y + j);
                    const double to = distance(in[here], in[n]);
                    if (to < least) least = to, like = n;
                }
            zippers += std::abs(distance(out[here], out[like]) - least) > 2.3;
            ++count;
        }
    const auto n = static_cast<double>(count);
    return {10 * std::log10(255.0 * 255.0 / std::max(squares / (3 * n), 1e-9)), 100 * static_cast<double>(zippers) / n,
            colour / n};
}
