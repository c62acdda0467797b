// From the colours of a demosaiced line to its bytes in the destination: matrix and gamma on the way. The level's steps
// come as `Rows<T>`, T being the lanes of the demosaic.
#pragma once
#include "plain/colour_out_rows.h"
#include "plain/demosaic_rows.h"
#include "sample_lines.h"

namespace img_pipe {
namespace {

// Columns a line of colours holds beyond its end: twice the widest vector of bytes.
constexpr std::int32_t colour_pad = 128;

// Takes a line of `n` samples and its padding from *at, and moves it on.
template <class T>
[[maybe_unused]] T* take_line(std::byte*& at, std::int32_t n) {
    T* line = reinterpret_cast<T*>(at);
    at += (static_cast<std::size_t>(n + colour_pad) * sizeof(T) + 63) / 64 * 64;
    return line;
}

template <template <class> class Rows, class T>
class colour_out {
public:
    // Columns [first, first + width) of the strip's destination; `first` is even.
    colour_out(const kernel_call& call, std::int32_t first_, std::int32_t width_, std::byte*& scratch)
        : dst(call.dst),
          params(static_cast<const demosaic_params*>(call.params)),
          first(first_),
          width(width_),
          large(std::int64_t{call.image_height} * call.dst.plane_data[0].stride >= (std::int64_t{8} << 20)),
          planar(call.dst.format == fcc("I420") || call.dst.format == fcc("YV12")) {
        if (matrix()) {
            finish.matrix_on = true;
            fix_matrix(params->matrix, finish.matrix);
        }
        if (narrow_lanes && gamma()) {
            fit_curve(params->gamma8, curve);
            finish.curve = &curve;
        }
        if (!narrow_lanes && gamma() && fit_power_bytes(params->gamma, power)) finish.power = &power;
        for (int i = 0; i < 3; ++i) {
            lines.line[i] = take_line<T>(scratch, width);
            bytes.line[i] =
                narrow_lanes ? reinterpret_cast<std::uint8_t*>(lines.line[i]) : take_line<std::uint8_t>(scratch, width);
            if (planar)
                for (three8& line : yuv) line.line[i] = take_line<std::uint8_t>(scratch, width);
        }
    }

    // Where the line's colours are put; room for colour_pad columns more.
    three<T> colours() const { return lines; }
    // Whether colours go out as they come, into pixels.
    bool as_it_is() const {
        const bool pixels =
            narrow_lanes ? dst.format == fcc("BGR3") || dst.format == fcc("BGR4") : dst.format == fcc("RGB6");
        return pixels && !matrix() && !gamma();
    }
    // Whether put_finished() can take the place of colours() and put().
    bool finishes() const {
        if (dst.format != fcc("BGR3") && dst.format != fcc("BGR4")) return false;
        return !gamma() || (narrow_lanes ? curve.exact_count <= most_exact : finish.power != nullptr);
    }
    void put_finished(const mosaic_lines<T>& in, const pixel_lines& to) {
        Rows<T>::finished_pixels(finish, in, width, lines, bytes, to);
    }
    // A picture that leaves no room in the last cache is not put there: nothing is fetched only to be overwritten.
    pixel_lines pixels(std::int32_t y, const std::uint8_t* next, std::int32_t next_step) const {
        const std::int32_t channels = dst.format == fcc("BGR3") ? 3 : 4,
                           sample_bytes = dst.format == fcc("RGB6") ? 2 : 1;
        return {at(y, channels * sample_bytes), channels, large, next, next_step};
    }

    // Writes line y from colours().
    void put(std::int32_t y) {
        if constexpr (!narrow_lanes)
            if (dst.format == fcc("RGB6")) return put_16(y);
        to_bytes();
        const in8 in{{bytes.line[0], bytes.line[1], bytes.line[2]}};
        switch (dst.format) {
        case fcc("BGR3"):
            return Rows<T>::join8(3, in, 0, width, at(y, 3));
        case fcc("BGR4"):
            return Rows<T>::join8(4, in, 0, width, at(y, 4));
        case fcc("Y800"):
            return Rows<T>::luma8(in, 0, width, at(y, 1));
        default:
            return put_planes(y, in);
        }
    }

private:
    static constexpr bool narrow_lanes = sizeof(T) == 1;
    std::uint8_t* at(std::int32_t y, std::int32_t pixel_bytes) const { return line_of(dst, y) + first * pixel_bytes; }
    bool matrix() const { return params != nullptr && params->matrix_on; }
    bool gamma() const {
        return params != nullptr && (narrow_lanes ? params->gamma8 != nullptr : params->gamma != nullptr);
    }

    void to_bytes() {
        if (matrix()) Rows<T>::fixed_matrix(finish.matrix, 0, width, lines);
        for (int i = 0; i < 3; ++i)
            if constexpr (narrow_lanes) {
                if (gamma()) Rows<T>::map_sites(curve, curve, lines.line[i], width, lines.line[i]);
            } else {
                if (gamma()) Rows<T>::gamma(params->curve, params->gamma, 0, width, lines.line[i]);
                Rows<T>::narrow(reinterpret_cast<const std::uint8_t*>(lines.line[i]), 0, width, bytes.line[i]);
            }
    }

    void put_16(std::int32_t y) {
        const in16 in{{lines.line[0], lines.line[1], lines.line[2]}};
        if (matrix()) {
            line_matrix m{};
            for (int i = 0; i < 3; ++i) {
                for (int j = 0; j < 3; ++j) m.m[2 - i][2 - j] = params->matrix.m[i][j];
                m.offset[2 - i] = params->matrix.m[i][3] * 65535.0F;
            }
            Rows<T>::matrix16(m, in, 0, width, lines);
        }
        for (T* line : lines.line)
            if (gamma()) Rows<T>::gamma(params->curve, params->gamma, 0, width, line);
        Rows<T>::join16(in, 0, width, at(y, 8));
    }

    void put_planes(std::int32_t y, in8 in) {
        const three8& own = yuv[y & 1];
        Rows<T>::bgr_to_yuv(in, 0, width, {{at(y, 1), own.line[1], own.line[2]}});
        if (y % 2 == 0) return;
        const int blue = dst.format == fcc("I420") ? 1 : 2;
        for (int i = 1; i < 3; ++i)
            Rows<T>::halve(yuv[0].line[i], yuv[1].line[i], 0, width / 2,
                           line_of(dst, y / 2, i == 1 ? blue : 3 - blue) + first / 2);
    }

    const img_descriptor& dst;
    const demosaic_params* params;
    std::int32_t first, width;
    bool large, planar;
    colour_finish<T> finish{};
    byte_curve curve;  // gamma of bytes
    power_bytes power; // of words
    three<T> lines{};
    three8 bytes{}, yuv[2]{};
};

} // namespace
} // namespace img_pipe
