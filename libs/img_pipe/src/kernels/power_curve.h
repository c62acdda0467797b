// The arithmetic of a power curve, sample by sample; vectors do the same.
#pragma once
#include <img_pipe/kernel_params.h>

namespace img_pipe {
namespace {

// In the top octave: `place` is the sample there, less 32768, twice. Within 16 bits for every curve that is used.
[[maybe_unused]] std::uint32_t in_top_octave(const power_curve& c, std::uint32_t place) {
    const std::uint32_t piece = place >> 13, z = place << 3 & 0xFFFF;
    const std::uint32_t bent = z * c.bend[piece] >> 16;
    const std::uint32_t slope = c.rising ? c.slope[piece] + bent : c.slope[piece] - bent;
    return c.base[piece] + (z * slope >> 16);
}

[[maybe_unused]] std::uint16_t on_power_curve(const power_curve& c, std::uint16_t v) {
    if (v == 0) return 0;
    const auto octave = static_cast<std::uint32_t>(31 - __builtin_clz(v));
    const std::uint32_t whole = in_top_octave(c, static_cast<std::uint32_t>(v) << (16 - octave) & 0xFFFF);
    const std::uint32_t i = (octave + 1) & 15;
    const auto less = static_cast<std::uint32_t>(c.less_low[i] | c.less_high[i] << 8);
    return static_cast<std::uint16_t>(whole - (whole * less >> 16));
}

} // namespace
} // namespace img_pipe
