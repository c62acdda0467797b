// Smoothing of 8-bit grey: each sample becomes the mean of itself, its right and its lower neighbours, 2 x 2 in all. In
// the last column and line, where there is no neighbour, the sample itself takes its place.
#pragma once
#include "plain/smooth_rows.h"
#include "sample_lines.h"

namespace img_pipe {
namespace {

template <class Rows>
void smooth_lines(const kernel_call& call) {
    const std::int32_t width = call.src.width, below = call.image_height - 1 - call.first_line;
    for (std::int32_t y = 0; y < call.src.height; ++y) {
        const std::uint8_t *upper = line_of(call.src, y), *lower = line_of(call.src, y < below ? y + 1 : below);
        std::uint8_t* out = line_of(call.dst, y);
        Rows::mean_2x2(upper, lower, 0, width - 1, out);
        out[width - 1] = static_cast<std::uint8_t>((upper[width - 1] + lower[width - 1] + 1) >> 1);
    }
}

template <class Rows>
kernel_fn find_smooth_of(std::uint32_t destination, std::uint32_t source) {
    return destination == fcc("Y800") && source == fcc("Y800") ? &smooth_lines<Rows> : nullptr;
}

} // namespace
} // namespace img_pipe
