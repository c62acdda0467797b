// A power of samples to bytes, value by value; vectors do the same.
#pragma once
#include <img_pipe/kernel_params.h>

namespace img_pipe {
namespace {

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

} // namespace
} // namespace img_pipe
