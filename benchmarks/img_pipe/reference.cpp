#include "scenes.h"

#include <cmath>
#include <cstdlib>

namespace {

int mirrored(int i, int n) {
    while (i < 0 || i >= n) i = i < 0 ? -i : 2 * (n - 1) - i;
    return i;
}

struct plane {
    plane(int w, int h) : width(w), height(h), v(static_cast<std::size_t>(w) * static_cast<std::size_t>(h)) {}
    double& operator()(int x, int y) {
        return v[static_cast<std::size_t>(mirrored(y, height)) * static_cast<std::size_t>(width) +
                 static_cast<std::size_t>(mirrored(x, width))];
    }
    int width, height;
    std::vector<double> v;
};

} // namespace

picture reference_demosaic(const std::vector<std::uint16_t>& mosaic, int width, int height) {
    plane raw(width, height), across(width, height), along(width, height), vertical(width, height);
    for (std::size_t i = 0; i < mosaic.size(); ++i) raw.v[i] = mosaic[i] / 257.0;
    const auto green_at = [](int x, int y) { return ((x ^ y) & 1) != 0; };
    const auto each = [&](auto&& f) {
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) f(x, y);
    };
    const auto candidate = [&](int x, int y, int dx, int dy) {
        return (raw(x - dx, y - dy) + raw(x + dx, y + dy)) / 2 +
               (2 * raw(x, y) - raw(x - 2 * dx, y - 2 * dy) - raw(x + 2 * dx, y + 2 * dy)) / 4;
    };
    each([&](int x, int y) {
        if (green_at(x, y)) return;
        along(x, y) = raw(x, y) - candidate(x, y, 1, 0);
        across(x, y) = raw(x, y) - candidate(x, y, 0, 1);
    });
    plane green = raw;
    each([&](int x, int y) {
        if (green_at(x, y)) return;
        // The change of the colour differences over a window of 5 x 5, the middle weighted by 3.
        const auto change = [&](plane& d, int dx, int dy) {
            const auto step = [&](int x0, int y0) { return std::abs(d(x0, y0) - d(x0 + 2 * dx, y0 + 2 * dy)); };
            double sum = 0;
            for (int end = -2; end <= 0; end += 2) {
                const int ex = end * dx, ey = end * dy;
                sum += 3 * step(x + ex, y + ey) + step(x + ex + 2 * dy, y + ey + 2 * dx) +
                       step(x + ex - 2 * dy, y + ey - 2 * dx);
            }
            return sum + step(x - dx + dy, y - dy + dx) + step(x - dx - dy, y - dy - dx);
        };
        const bool v = change(across, 0, 1) < change(along, 1, 0);
        vertical(x, y) = v ? 1 : 0;
        green(x, y) = raw(x, y) - (v ? across(x, y) : along(x, y));
    });

    plane red = raw, blue = raw;
    const auto mean = [](plane& a, plane& b, int x, int y, int dx, int dy) {
        return (a(x - dx, y - dy) - b(x - dx, y - dy) + a(x + dx, y + dy) - b(x + dx, y + dy)) / 2;
    };
    const auto fill_green_sites = [&] {
        each([&](int x, int y) {
            if (!green_at(x, y)) return;
            const int r = y % 2 == 0 ? 1 : 0; // red stands beside, else above
            red(x, y) = green(x, y) + mean(red, green, x, y, r, 1 - r);
            blue(x, y) = green(x, y) + mean(blue, green, x, y, 1 - r, r);
        });
    };
    const auto fill_other = [&] {
        each([&](int x, int y) {
            if (green_at(x, y)) return;
            const int v = vertical(x, y) > 0 ? 1 : 0;
            plane &own = y % 2 == 0 ? red : blue, &other = y % 2 == 0 ? blue : red;
            other(x, y) = own(x, y) + mean(other, own, x, y, 1 - v, v);
        });
    };
    fill_green_sites();
    fill_other();

    // Refinement: green, then the colours beside it, from colour differences smoothed along the direction.
    plane better = green;
    each([&](int x, int y) {
        if (green_at(x, y)) return;
        plane& own = y % 2 == 0 ? red : blue;
        const int v = vertical(x, y) > 0 ? 1 : 0, h = 1 - v;
        const auto d = [&](int i) { return own(x + i * h, y + i * v) - green(x + i * h, y + i * v); };
        better(x, y) = own(x, y) - (d(-1) + d(0) + d(1)) / 3;
    });
    green = better;
    fill_green_sites();
    plane new_red = red, new_blue = blue;
    each([&](int x, int y) {
        if (green_at(x, y)) return;
        const int v = vertical(x, y) > 0 ? 1 : 0, h = 1 - v;
        const auto d = [&](int i) { return red(x + i * h, y + i * v) - blue(x + i * h, y + i * v); };
        const double smooth = (d(-1) + d(0) + d(1)) / 3;
        if (y % 2 == 0)
            new_blue(x, y) = red(x, y) - smooth;
        else
            new_red(x, y) = blue(x, y) + smooth;
    });
    picture out(width, height);
    each([&](int x, int y) {
        const auto value = [](double v) { return static_cast<float>(v < 0 ? 0 : v > 255 ? 255 : v); };
        out.at(0, x, y) = value(new_red(x, y));
        out.at(1, x, y) = value(green(x, y));
        out.at(2, x, y) = value(new_blue(x, y));
    });
    return out;
}
