// From the colours of a line to its bytes in the destination: matrix and gamma on the way. The level's steps come as
// `Rows`.
#pragma once
#include "plain/demosaic_rows.h"
#include "sample_lines.h"

namespace img_pipe {
namespace {

constexpr std::int32_t mosaic_reach = 6; // cells that a result reaches on each side

// Half lines by line number, a power of two of them.
struct half_ring {
    std::uint16_t* base;
    std::size_t pitch;
    std::int32_t mask;
    std::uint16_t* operator[](std::int32_t y) const {
        return base + pitch * static_cast<std::size_t>(y & mask) + line_pad;
    }
    s15* s(std::int32_t y) const { return reinterpret_cast<s15*>((*this)[y]); }
};

[[maybe_unused]] half_ring take_halves(std::byte*& at, std::size_t pitch, std::int32_t count) {
    half_ring ring{reinterpret_cast<std::uint16_t*>(at), pitch, count - 1};
    at += pitch * sizeof(std::uint16_t) * static_cast<std::size_t>(count);
    return ring;
}

// What goes with a line of colours into 16 bits.
struct own_samples {
    const std::uint16_t* line;
    bool red; // the line has red and green
    int at_c; // 0 when red or blue stand in the even columns
};

template <class Rows>
class colour_out {
public:
    // Columns [first, first + width) of the strip's destination; `first` is even.
    colour_out(const kernel_call& call, bool bytes_, std::int32_t first_, std::int32_t width_, std::byte*& scratch,
               std::size_t pitch)
        : dst(call.dst),
          params(static_cast<const demosaic_params*>(call.params)),
          bytes(bytes_),
          first(first_),
          width(width_),
          cells((width_ + 1) / 2),
          to16(call.dst.format == fcc("RGB6")),
          planar(call.dst.format == fcc("I420") || call.dst.format == fcc("YV12")) {
        if (matrix()) fixed = fixed_of(params->matrix);
        if (planar)
            for (int i = 0; i < 2; ++i) {
                u[i] = take_halves(scratch, pitch, 1)[0];
                v[i] = take_halves(scratch, pitch, 1)[0];
            }
    }

    bool is_16() const { return to16; }
    // Whether colours go out as they come.
    bool neutral() const { return !matrix() && !gamma(); }
    s15 round() const { return bytes ? 64 : 0; }
    std::uint8_t* at(std::int32_t y, std::int32_t pixel_bytes) const { return line_of(dst, y) + first * pixel_bytes; }

    void put(std::int32_t y, const colour_halves& c, const own_samples& own) {
        if (to16) {
            Rows::widen(own.line, own.red, own.at_c, width, c);
            if (matrix()) Rows::apply_matrix(params->matrix, cells, c);
            if (gamma()) look_up(c);
            Rows::store_rgb6(c, width, at(y, 8));
            return;
        }
        if (matrix()) Rows::apply_fixed_matrix(fixed, cells, c);
        if (gamma()) look_up(c);
        switch (dst.format) {
        case fcc("BGR3"):
            Rows::store_bgr3(c, width, round(), at(y, 3));
            break;
        case fcc("BGR4"):
            Rows::store_bgr4(c, width, round(), at(y, 4));
            break;
        default:
            Rows::store_luma(c, width, round(), at(y, 1));
            if (planar) put_chroma(y, c);
        }
    }

private:
    bool matrix() const { return params != nullptr && params->matrix_on; }
    bool gamma() const { return params != nullptr && (bytes ? params->gamma8 != nullptr : params->gamma != nullptr); }

    void put_chroma(std::int32_t y, const colour_halves& c) {
        Rows::chroma(c, cells, u[y & 1], v[y & 1]);
        if (y % 2 == 0) return;
        const int blue = dst.format == fcc("I420") ? 1 : 2;
        Rows::store_chroma(u[0], u[1], width / 2, line_of(dst, y / 2, blue) + first / 2);
        Rows::store_chroma(v[0], v[1], width / 2, line_of(dst, y / 2, 3 - blue) + first / 2);
    }

    void look_up(const colour_halves& c) const {
        for (s15* half : {c.r[0], c.r[1], c.g[0], c.g[1], c.b[0], c.b[1]})
            if (bytes)
                for (std::int32_t k = 0; k < cells; ++k)
                    half[k] = static_cast<s15>(params->gamma8[byte_of(half[k], 64)] << 7U);
            else if (to16)
                for (std::int32_t k = 0; k < cells; ++k)
                    half[k] = static_cast<s15>(params->gamma[static_cast<std::uint16_t>(half[k])]);
            else
                for (std::int32_t k = 0; k < cells; ++k) {
                    const std::int32_t value = positive(half[k]);
                    half[k] = static_cast<s15>(params->gamma[value << 1 | value >> 14] >> 1U);
                }
    }

    const img_descriptor& dst;
    const demosaic_params* params;
    bool bytes; // the mosaic has 8 bits
    std::int32_t first, width, cells;
    bool to16, planar;
    fixed_matrix fixed{};
    std::uint16_t *u[2]{}, *v[2]{};
};

} // namespace
} // namespace img_pipe
