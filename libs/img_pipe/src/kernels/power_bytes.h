// A power of samples to bytes, value by value; vectors do the same. As power_curve.h, with straight pieces and factors
// that keep a part.
#pragma once
#include <cstdint>

namespace img_pipe {
namespace {

struct power_bytes {
    // Words of eight pieces: the lower bytes, then the upper ones.
    alignas(16) std::uint8_t base[16];
    alignas(16) std::uint8_t slope[16];
    alignas(16) std::uint8_t keep_low[16]; // by octave, in 1/65536; 0 for the lowest, where nothing but black is
    alignas(16) std::uint8_t keep_high[16];
};

// Where a value of bits + 15 bits stands: the upper four bits are the octave, 15 the topmost and 0 all below a half of
// the 15-bit count, the lower twelve the place in it. 0 for values below, black among them, 65535 for white and above.
[[maybe_unused]] std::int32_t octave_place(std::int32_t value, std::int32_t bits) {
    // A float's exponent is the octave, its mantissa the place in it.
    const auto as_float = __builtin_bit_cast(std::int32_t, static_cast<float>(value));
    const std::int32_t place = (as_float >> 11) - ((126 + bits) << 12);
    return place < 0 ? 0 : place > 65535 ? 65535 : place;
}

[[maybe_unused]] std::uint32_t power_word(const power_bytes& p, std::int32_t place) {
    const auto at = static_cast<std::uint32_t>(place);
    const std::uint32_t octave = at >> 12, piece = at >> 9 & 7, within = at << 7 & 0xFFFF;
    const auto word = [&](const std::uint8_t* of) {
        return of[piece] | static_cast<std::uint32_t>(of[piece + 8]) << 8U;
    };
    const std::uint32_t top = word(p.base) + (within * word(p.slope) >> 16);
    return top * (p.keep_low[octave] | static_cast<std::uint32_t>(p.keep_high[octave]) << 8U) >> 16;
}
[[maybe_unused]] std::uint8_t power_byte(const power_bytes& p, std::int32_t place) {
    return static_cast<std::uint8_t>(power_word(p, place) >> 8);
}

// How far from the table a word may be: half of a byte's count.
constexpr std::int32_t power_bytes_error = 128;

// From the power's 65536 words; false when they are no power, or one that straight pieces do not come near enough to.
[[maybe_unused]] bool fit_power_bytes(const std::uint16_t* table, power_bytes& out) {
    const auto put = [](std::uint8_t* words, std::int32_t i, std::int32_t v) {
        v = v < 0 ? 0 : v > 65535 ? 65535 : v;
        words[i] = static_cast<std::uint8_t>(v & 0xFF);
        words[i + 8] = static_cast<std::uint8_t>(v >> 8);
    };
    out = {};
    for (std::int32_t piece = 0; piece < 8; ++piece) {
        // A chord, moved to where its errors to both sides are alike, and within 16 bits at white.
        const std::uint16_t* const at = table + 32768 + 4096 * piece;
        const std::int32_t end = piece == 7 ? 65535 : at[4096], slope = end - at[0];
        std::int32_t base = at[0] + (2 * at[2048] - at[0] - end) / 4;
        if (base + slope > 65535) base = 65535 - slope;
        put(out.base, piece, base);
        put(out.slope, piece, slope);
    }
    for (std::int32_t octave = 1; octave < 16 && table[32768] != 0; ++octave) {
        const std::uint32_t keep = (65536U * table[1 << octave] + table[32768] / 2U) / table[32768];
        out.keep_low[octave] = static_cast<std::uint8_t>(keep > 65535 ? 255 : keep & 0xFF);
        out.keep_high[octave] = static_cast<std::uint8_t>(keep > 65535 ? 255 : keep >> 8);
    }
    for (std::int32_t place = 1 << 12; place < 16 << 12; place += 64) {
        const std::int32_t octave = place >> 12, value = (4096 + (place & 4095)) << octave >> 12;
        const std::int32_t apart = static_cast<std::int32_t>(power_word(out, octave_place(value, 1))) - table[value];
        if (apart > power_bytes_error || apart < -power_bytes_error) return false;
    }
    return power_byte(out, 65535) == 255;
}

} // namespace
} // namespace img_pipe
