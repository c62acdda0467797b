// Companded images: 12-bit codes of a mosaic that begins with red, whose linear values have 20 bits. Cameras do not
// tell their knees; the curve here has knees at codes 1024, 2048 and 3072, with slopes of 1, 16, 128 and what is left.
//   RGf0        linear, 0 to 1
//   BGR4        a picture to look at: the square root of the linear values, colours interpolated from the neighbours
//   RGGB, RG16  from RGf0, times the parameters' gains, with offset and table
#pragma once
#include "sample_lines.h"

#include <cstring>

namespace img_pipe {
namespace {

constexpr std::int32_t pwl_white = 1048575;

[[maybe_unused]] float linear_of(std::int32_t code) {
    struct knee {
        std::int32_t code, value;
    };
    constexpr knee knees[] = {{0, 0}, {1024, 1024}, {2048, 17408}, {3072, 148480}, {4095, pwl_white}};
    int i = 0;
    while (i < 3 && code >= knees[i + 1].code) ++i;
    const std::int64_t rise = knees[i + 1].value - knees[i].value, run = knees[i + 1].code - knees[i].code;
    const std::int64_t times_run = knees[i].value * run + rise * (code - knees[i].code);
    return static_cast<float>(static_cast<double>(times_run) / static_cast<double>(run * pwl_white));
}

template <class Rows>
void pwl_to_float(const kernel_call& call) {
    const sample_layout in = layout_of(call.src.format);
    std::byte* at = call.scratch;
    std::uint16_t* line = take_ring(at, call.src.width, 1).line(0);
    auto* table = reinterpret_cast<float*>(at); // the least scratch has room for it
    for (std::int32_t code = 0; code < 4096; ++code) table[code] = linear_of(code);
    for (std::int32_t y = 0; y < call.src.height; ++y) {
        Rows::load(in, line_of(call.src, y), call.data_end, call.src.width, line);
        std::uint8_t* out = line_of(call.dst, y);
        for (std::int32_t x = 0; x < call.src.width; ++x) {
            const float v = table[line[x] >> 4];
            std::memcpy(out + 4 * static_cast<std::ptrdiff_t>(x), &v, 4);
        }
    }
}

template <class Rows>
void pwl_to_picture(const kernel_call& call) {
    const sample_layout in = layout_of(call.src.format);
    const std::int32_t width = call.src.width;
    std::byte* at = call.scratch;
    const row_ring ring = take_ring(at, width, 3);
    auto* table = reinterpret_cast<std::uint16_t*>(at);
    for (std::int32_t code = 0; code < 4096; ++code)
        table[code] = static_cast<std::uint16_t>(__builtin_sqrtf(linear_of(code)) * 65535.0F + 0.5F);
    const auto load = [&](std::int32_t y) {
        const std::int32_t from = mirror(call.first_line + y, call.image_height) - call.first_line;
        std::uint16_t* line = ring.line(y);
        Rows::load(in, line_of(call.src, from), call.data_end, width, line);
        for (std::int32_t x = 0; x < width; ++x) line[x] = table[line[x] >> 4];
        mirror_ends(line, width, 1);
    };
    load(-1);
    load(0);
    for (std::int32_t y = 0; y < call.src.height; ++y) {
        load(y + 1);
        const std::uint16_t *above = ring.line(y - 1), *middle = ring.line(y), *below = ring.line(y + 1);
        std::uint8_t* out = line_of(call.dst, y);
        const bool red_line = ((call.first_line + y) & 1) == 0;
        for (std::int32_t x = 0; x < width; ++x) {
            const std::int32_t c = middle[x], rows = (middle[x - 1] + middle[x + 1] + 1) >> 1,
                               columns = (above[x] + below[x] + 1) >> 1;
            const std::int32_t corners = (above[x - 1] + above[x + 1] + below[x - 1] + below[x + 1] + 2) >> 2;
            const bool green = ((x & 1) == 0) != red_line;
            const std::int32_t g = green ? c : (rows + columns + 1) >> 1;
            const std::int32_t own = green ? rows : c, other = green ? columns : corners; // the line's colour, and not
            out[4 * x] = static_cast<std::uint8_t>((red_line ? other : own) >> 8);
            out[4 * x + 1] = static_cast<std::uint8_t>(g >> 8);
            out[4 * x + 2] = static_cast<std::uint8_t>((red_line ? own : other) >> 8);
            out[4 * x + 3] = 255;
        }
    }
}

template <class Rows>
void float_to_samples(const kernel_call& call) {
    const sample_layout to = layout_of(call.dst.format);
    const auto* samples = static_cast<const sample_params*>(call.params);
    constexpr sample_params neutral{{1, 1, 1, 1}, 0, nullptr, nullptr};
    const sample_params& p = samples != nullptr ? *samples : neutral;
    std::byte* at = call.scratch;
    std::uint16_t* line = take_ring(at, call.src.width, 1).line(0);
    for (std::int32_t y = 0; y < call.src.height; ++y) {
        const std::uint8_t* in = line_of(call.src, y);
        const float* gain = p.gain + ((call.first_line + y) & 1) * 2;
        for (std::int32_t x = 0; x < call.src.width; ++x) {
            float v = 0;
            std::memcpy(&v, in + 4 * static_cast<std::ptrdiff_t>(x), 4);
            v = v * 65535.0F * gain[x & 1] + p.offset;
            v = v > 0.0F ? v < 65535.0F ? v : 65535.0F : 0.0F; // no number counts as 0
            const auto out = static_cast<std::uint16_t>(nearest(v));
            line[x] = p.table != nullptr ? p.table[out] : out;
        }
        Rows::store(to, line_of(call.dst, y), line_end(call.dst, y, line_bytes(to, call.dst.width)), call.src.width,
                    line);
    }
}

template <class Rows>
kernel_fn find_pwl_of(std::uint32_t destination, std::uint32_t source) {
    const bool pwl = source == fcc("PWL1") || source == fcc("PWL2") || source == fcc("PWL3");
    if (pwl && destination == fcc("RGf0")) return &pwl_to_float<Rows>;
    if (pwl && destination == fcc("BGR4")) return &pwl_to_picture<Rows>;
    if (source == fcc("RGf0") && (destination == fcc("RGGB") || destination == fcc("RG16")))
        return &float_to_samples<Rows>;
    return nullptr;
}

} // namespace
} // namespace img_pipe
