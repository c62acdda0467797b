// Mosaics of floats, linear from 0 to 1.
//   to the same             times the parameters' gains, which may take it above 1; in place too
//   to 8 and 16 bits        with offset and table besides
// Of the parameters without offset and table, white balance alone.
#pragma once
#include "sample_lines.h"

#include <cstring>

namespace img_pipe {
namespace {

[[maybe_unused]] sample_params gains_of(const kernel_call& call) {
    constexpr sample_params neutral{{1, 1, 1, 1}, 0, nullptr, nullptr};
    const auto* samples = static_cast<const sample_params*>(call.params);
    return samples != nullptr ? *samples : neutral;
}
[[maybe_unused]] const float* line_gain(const sample_params& p, std::int32_t y) { return p.gain + (y & 1) * 2; }

[[maybe_unused]] float get_float(const std::uint8_t* line, std::int32_t x) {
    float v = 0;
    std::memcpy(&v, line + 4 * static_cast<std::ptrdiff_t>(x), 4);
    return v;
}
[[maybe_unused]] void put_float(std::uint8_t* line, std::int32_t x, float v) {
    std::memcpy(line + 4 * static_cast<std::ptrdiff_t>(x), &v, 4);
}

template <class Rows>
void float_gains(const kernel_call& call) {
    const sample_params p = gains_of(call);
    for (std::int32_t y = 0; y < call.src.height; ++y) {
        const std::uint8_t* in = line_of(call.src, y);
        std::uint8_t* out = line_of(call.dst, y);
        const float* gain = line_gain(p, call.first_line + y);
        for (std::int32_t x = 0; x < call.src.width; ++x) put_float(out, x, get_float(in, x) * gain[x & 1]);
    }
}

template <class Rows>
void float_to_samples(const kernel_call& call) {
    const sample_layout to = layout_of(call.dst.format);
    const sample_params p = gains_of(call);
    std::byte* at = call.scratch;
    std::uint16_t* line = take_ring(at, call.src.width, 1).line(0);
    for (std::int32_t y = 0; y < call.src.height; ++y) {
        const std::uint8_t* in = line_of(call.src, y);
        const float* gain = line_gain(p, call.first_line + y);
        for (std::int32_t x = 0; x < call.src.width; ++x) {
            float v = get_float(in, x) * 65535.0F * gain[x & 1] + p.offset;
            v = v > 0.0F ? v < 65535.0F ? v : 65535.0F : 0.0F; // no number counts as 0
            const auto out = static_cast<std::uint16_t>(nearest(v));
            line[x] = p.table != nullptr ? p.table[out] : out;
        }
        Rows::store(to, line_of(call.dst, y), line_end(call.dst, y, line_bytes(to, call.dst.width)), call.src.width,
                    line);
    }
}

template <class Rows>
constexpr kernel_row float_rows[] = {
    {fcc("BA81"), fcc("BGf0"), &float_to_samples<Rows>, 1, 1, 1, 1},
    {fcc("GBRG"), fcc("GBf0"), &float_to_samples<Rows>, 1, 1, 1, 1},
    {fcc("GRBG"), fcc("BAf0"), &float_to_samples<Rows>, 1, 1, 1, 1},
    {fcc("RGGB"), fcc("RGf0"), &float_to_samples<Rows>, 1, 1, 1, 1},
    {fcc("BG16"), fcc("BGf0"), &float_to_samples<Rows>, 1, 1, 1, 1},
    {fcc("GB16"), fcc("GBf0"), &float_to_samples<Rows>, 1, 1, 1, 1},
    {fcc("BA16"), fcc("BAf0"), &float_to_samples<Rows>, 1, 1, 1, 1},
    {fcc("RG16"), fcc("RGf0"), &float_to_samples<Rows>, 1, 1, 1, 1},
    {fcc("BGf0"), fcc("BGf0"), &float_gains<Rows>, 1, 1, 1, 1},
    {fcc("GBf0"), fcc("GBf0"), &float_gains<Rows>, 1, 1, 1, 1},
    {fcc("BAf0"), fcc("BAf0"), &float_gains<Rows>, 1, 1, 1, 1},
    {fcc("RGf0"), fcc("RGf0"), &float_gains<Rows>, 1, 1, 1, 1},
    {},
};

} // namespace
} // namespace img_pipe
