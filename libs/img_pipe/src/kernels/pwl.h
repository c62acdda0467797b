// Companded mosaics to mosaics of floats, linear from 0 to 1, times the gains of the parameters' white balance, which
// may take it above 1.
#pragma once
#include "float_samples.h"
#include "pwl_curve.h"

namespace img_pipe {
namespace {

template <class Rows>
void pwl_to_float(const kernel_call& call) {
    const sample_layout in = layout_of(call.src.format);
    const sample_params p = gains_of(call);
    std::byte* at = call.scratch;
    std::uint16_t* line = take_ring(at, call.src.width, 1).line(0);
    auto* table = reinterpret_cast<float*>(at); // the least scratch has room for it
    for (std::int32_t code = 0; code < 4096; ++code) table[code] = linear_of(code);
    for (std::int32_t y = 0; y < call.src.height; ++y) {
        Rows::load(in, line_of(call.src, y), read_end(call, in, y), call.src.width, line);
        std::uint8_t* out = line_of(call.dst, y);
        const float* gain = line_gain(p, call.first_line + y);
        for (std::int32_t x = 0; x < call.src.width; ++x) put_float(out, x, table[line[x] >> 4] * gain[x & 1]);
    }
}

template <class Rows>
constexpr kernel_row pwl_rows[] = {
    {fcc("RGf0"), fcc("PWL2"), &pwl_to_float<Rows>, 1, 1, 2, 1},
    {fcc("RGf0"), fcc("PWL1"), &pwl_to_float<Rows>, 1, 1, 2, 1},
    {fcc("RGf0"), fcc("PWL3"), &pwl_to_float<Rows>, 1, 1, 2, 1},
    {},
};

} // namespace
} // namespace img_pipe
