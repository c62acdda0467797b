// Per-sample correction of a line in the 16-bit form.
#pragma once
#include "../byte_curve.h"
#include "../rows.h"

#include <img_pipe/kernel_params.h>

namespace img_pipe {
namespace {

// Half to even, in the number range of the samples: adding and taking away 1.5 * 2^23 leaves no bits behind the point.
[[maybe_unused]] std::int32_t nearest(float v) {
    volatile float shifted = v + 12582912.0F;
    return static_cast<std::int32_t>(shifted - 12582912.0F);
}

[[maybe_unused]] std::uint16_t correct_sample(const sample_params& p, float gain, std::uint16_t v) {
    float r = static_cast<float>(v) * gain;
    r = r + p.offset;
    r = r < 0.0F ? 0.0F : r > 65535.0F ? 65535.0F : r;
    const auto out = static_cast<std::uint16_t>(nearest(r));
    return p.table != nullptr ? p.table[out] : out;
}

[[maybe_unused]] void correct_line(const sample_params& p, std::int32_t y, std::int32_t width, std::uint16_t* line) {
    const float* gain = p.gain + (y & 1) * 2;
    for (std::int32_t x = 0; x < width; ++x) line[x] = correct_sample(p, gain[x & 1], line[x]);
}

// Bytes through a table of 256 for even columns and one for odd ones. In place is fine.
[[maybe_unused]] void look_up_sites(const std::uint8_t* even, const std::uint8_t* odd, const std::uint8_t* in,
                                    std::int32_t width, std::uint8_t* out) {
    for (std::int32_t x = 0; x < width; ++x) out[x] = (x % 2 == 0 ? even[in[x]] : odd[in[x]]);
}

[[maybe_unused]] void map_sites(const byte_curve& even, const byte_curve& odd, const std::uint8_t* in,
                                std::int32_t width, std::uint8_t* out) {
    look_up_sites(even.table, odd.table, in, width, out);
}

} // namespace
} // namespace img_pipe
