#include "fit_power_bytes.h"

#include "../kernels/power_bytes.h"

#include <algorithm>
#include <cmath>

namespace img_pipe {

namespace {

constexpr double most = 65535, most_apart = 128; // in counts of 16 bits
constexpr std::int32_t top_octave = 15 << 12, piece_places = 1 << 9;

// The power of the middle of a place.
double power_at(double exponent, std::int32_t place) {
    const double value = std::exp2((place >> 12) - 16) * (1 + ((place & 4095) + 0.5) / 4096);
    return most * std::pow(value, exponent);
}

void set_word(std::uint8_t* words, std::int32_t i, double value) {
    const auto word = static_cast<std::uint32_t>(std::lround(std::clamp(value, 0.0, most)));
    words[i] = static_cast<std::uint8_t>(word & 0xFFU);
    words[i + 8] = static_cast<std::uint8_t>(word >> 8U);
}

// The chord, moved to where its errors to both sides are alike.
void fit_piece(double exponent, std::int32_t piece, power_bytes& out) {
    const auto end_of = [&](std::int32_t p) { return most * std::pow((8 + p) / 16.0, exponent); };
    const std::int32_t first = top_octave + piece * piece_places;
    double base = end_of(piece), low = most, high = -most;
    set_word(out.slope, piece, end_of(piece + 1) - base);
    set_word(out.base, piece, base);
    for (std::int32_t place = first; place < first + piece_places; place += 8) {
        const double error = power_word(out, place) - power_at(exponent, place);
        low = std::min(low, error);
        high = std::max(high, error);
    }
    base -= (low + high) / 2;
    set_word(out.base, piece, base);
}

} // namespace

bool fit_power_bytes(double exponent, power_bytes& out) {
    out = {};
    for (std::int32_t octave = 1; octave < 16; ++octave) {
        const auto keep =
            static_cast<std::uint32_t>(std::lround(std::min(most, 65536 * std::exp2(exponent * (octave - 15)))));
        out.keep_low[octave] = static_cast<std::uint8_t>(keep & 0xFFU);
        out.keep_high[octave] = static_cast<std::uint8_t>(keep >> 8U);
    }
    for (std::int32_t piece = 0; piece < 8; ++piece) fit_piece(exponent, piece, out);
    // Within 16 bits at white, too.
    const std::uint32_t slope = out.slope[7] | static_cast<std::uint32_t>(out.slope[15]) << 8U;
    const std::uint32_t base = out.base[7] | static_cast<std::uint32_t>(out.base[15]) << 8U;
    set_word(out.base, 7, std::min<double>(base, 65535 - (0xFF80 * slope >> 16)));
    for (std::int32_t place = 1 << 12; place < 16 << 12; place += 16)
        if (std::abs(power_word(out, place) - power_at(exponent, place)) > most_apart) return false;
    return power_byte(out, 65535) == 255;
}

} // namespace img_pipe
