#include <auto_alg/temperature_table.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

namespace auto_alg {

namespace {

using gains = std::array<double, 3>;

// Wien's law: a black body's radiance at a wavelength goes with exp(-c2 / (wavelength * temperature)).
constexpr double second_radiation_constant = 1.438777e-2;               // m K
constexpr std::array<double, 3> wavelengths = {600e-9, 540e-9, 460e-9}; // the middle of red, green and blue filters
constexpr double balanced_at = 6500;                                    // K

gains black_body(double temperature) {
    gains g{};
    for (std::size_t i = 0; i < 3; ++i)
        g[i] = std::exp(second_radiation_constant / wavelengths[i] * (1 / temperature - 1 / balanced_at));
    return g;
}

// A light by the reciprocal of its temperature, and the logarithms of what its gains are of a black body's.
struct correction {
    double place = 0;
    gains logarithm{};
};

correction correction_of(const calibrated_light& light) {
    const double temperature = std::clamp(static_cast<double>(light.temperature), 1000.0, 100'000.0);
    const gains expected = black_body(temperature);
    correction c{1 / temperature, {}};
    for (std::size_t i = 0; i < 3; ++i) {
        const auto gain = static_cast<double>(light.gain[i]);
        c.logarithm[i] = std::log((std::isfinite(gain) ? std::clamp(gain, 1.0 / 64, 64.0) : 1) / expected[i]);
    }
    return c;
}

} // namespace

void make_temperature_table(std::span<const calibrated_light> lights, temperature_table& to) {
    std::array<correction, 16> known{};
    std::size_t count = 0;
    for (const calibrated_light& light : lights)
        if (light.temperature > 0 && count < known.size()) known[count++] = correction_of(light);
    const std::span found{known.data(), count};
    std::ranges::stable_sort(found, {}, &correction::place);
    const auto corrected = [&](double place, std::size_t channel) {
        if (found.empty()) return 0.0;
        const auto above = std::ranges::lower_bound(found, place, {}, &correction::place);
        if (above == found.begin()) return found.front().logarithm[channel];
        if (above == found.end()) return found.back().logarithm[channel];
        const correction& a = *(above - 1);
        const double part = (place - a.place) / (above->place - a.place);
        return std::lerp(a.logarithm[channel], above->logarithm[channel], part);
    };
    for (std::int32_t row = 0; row < temperature_table::rows; ++row) {
        const double temperature = temperature_table::lowest + row * temperature_table::step;
        gains g = black_body(temperature);
        for (std::size_t i = 0; i < 3; ++i) g[i] *= std::exp(corrected(1 / temperature, i));
        const double least = *std::ranges::min_element(g);
        for (std::size_t i = 0; i < 3; ++i) to.gain[row][i] = static_cast<float>(g[i] / least);
    }
}

} // namespace auto_alg
