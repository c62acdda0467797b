// Polarisation images: every cell of 2 x 2 samples has a filter of 90 and 45 degrees in its upper line and of 135 and 0
// in its lower one. A destination of half the source's size has a pixel for every cell; one of the source's size has
// each cell's pixel four times, and what an odd size leaves over takes the nearest cell's.
//
// Pixels of the destinations, 8 or 16 bits a sample:
//   PPM, PPB  the samples of 90, 45, 135 and 0 degrees
//   ADI       angle (the full range is 180 degrees, and wraps), degree (full range: 1), intensity (mean of the four), 0
//   ADC       the same four, then blue, green, red, 0. Each cell lies under one colour, the cells being a mosaic that
//             begins with blue; the colour is that of 2 x 2 cells, or the intensity where there are none so many
//   BGR4      angle as hue, degree as saturation, intensity as value
#pragma once
#include "plain/polarisation_rows.h"
#include "sample_lines.h"

#include <cstring>

namespace img_pipe {
namespace {

enum class pol_kind : std::uint8_t { none, samples, adi, adc, view };
struct pol_format {
    pol_kind kind;
    bool wide; // 16 bits a sample
};

[[maybe_unused]] pol_format pol_format_of(std::uint32_t id) {
    if (id == fcc("PPM1") || id == fcc("PPB1")) return {pol_kind::samples, false};
    if (id == fcc("PPM2") || id == fcc("PPB2")) return {pol_kind::samples, true};
    if (id == fcc("ADI1")) return {pol_kind::adi, false};
    if (id == fcc("ADI2")) return {pol_kind::adi, true};
    if (id == fcc("ADC1")) return {pol_kind::adc, false};
    if (id == fcc("ADC2")) return {pol_kind::adc, true};
    if (id == fcc("BGR4")) return {pol_kind::view, false};
    return {pol_kind::none, false};
}

template <class Rows>
class polarisation_lines {
public:
    static void run(const kernel_call& call) { polarisation_lines(call).all(); }

private:
    static constexpr int samples_of_adc = 8;

    explicit polarisation_lines(const kernel_call& c)
        : call(c),
          out(pol_format_of(c.dst.format)),
          in(layout_of(c.src.format)),
          cells(c.src.width / 2),
          cell_lines_total(c.image_height / 2),
          full_size(c.dst.width > c.src.width / 2) {
        std::byte* at = c.scratch;
        row_ring lines = take_ring(at, c.src.width, 12);
        int next = 0;
        const auto take = [&] { return lines.line(next++); };
        raw[0] = take();
        raw[1] = take();
        cell = {take(), take(), take(), take()};
        own = {take(), take(), take()};
        rest = {take(), take(), nullptr};
        for (int i = 0; i < 2; ++i) block[i] = take_ring(at, c.src.width, 1).line(0);
    }

    void all() {
        const int samples = out.kind == pol_kind::adc ? samples_of_adc : 4;
        const auto pixel_bytes = static_cast<std::size_t>(samples) * (out.wide ? 2 : 1);
        std::int32_t have = -1;
        for (std::int32_t y = 0; y < call.dst.height; ++y) {
            std::uint8_t* to = line_of(call.dst, y);
            if (cells < 1 || cell_lines_total < 1) {
                std::memset(to, 0, pixel_bytes * static_cast<std::size_t>(call.dst.width));
                continue;
            }
            const std::int32_t line = full_size ? (call.first_line + y) / 2 : call.first_line / 2 + y;
            const std::int32_t cell_line = line < cell_lines_total ? line : cell_lines_total - 1;
            if (cell_line != have) prepare(cell_line);
            have = cell_line;
            for (std::int32_t x = 0; x < call.dst.width; ++x, to += pixel_bytes) {
                const std::int32_t i = full_size ? x / 2 : x;
                pixel(i < cells ? i : cells - 1, to);
            }
        }
    }

    // Reads the samples of a line of cells of the image.
    void load(std::int32_t line) {
        for (int i = 0; i < 2; ++i) {
            const std::int32_t y = 2 * line + i - call.first_line;
            Rows::load(in, line_of(call.src, y), read_end(call, in, y), 2 * cells, raw[i]);
        }
        Rows::split_pairs(raw[0], 0, cells, cell.i90, cell.i45);
        Rows::split_pairs(raw[1], 0, cells, cell.i135, cell.i0);
    }

    void prepare(std::int32_t line) {
        if (out.kind == pol_kind::adc && cells > 1 && cell_lines_total > 1) {
            const std::int32_t last = cell_lines_total / 2 - 1, of = line / 2 < last ? line / 2 : last;
            for (int i = 0; i < 2; ++i) {
                load(2 * of + i);
                Rows::find_stokes(cell, 0, cells, {rest.angle, rest.degree, block[i]});
            }
        }
        load(line);
        if (out.kind != pol_kind::samples) Rows::find_stokes(cell, 0, cells, own);
    }

    void pixel(std::int32_t i, std::uint8_t* to) const {
        if (out.kind == pol_kind::view) return view_pixel(i, to);
        std::uint16_t v[samples_of_adc] = {cell.i90[i], cell.i45[i], cell.i135[i], cell.i0[i]};
        int count = 4;
        if (out.kind != pol_kind::samples) {
            v[0] = own.angle[i];
            v[1] = own.degree[i];
            v[2] = own.intensity[i];
            v[3] = 0;
        }
        if (out.kind == pol_kind::adc) {
            count = samples_of_adc;
            colour(i, v + 4);
            v[7] = 0;
        }
        if (out.wide) {
            std::memcpy(to, v, static_cast<std::size_t>(count) * 2);
            return;
        }
        for (int k = 0; k < count; ++k) to[k] = rounded(v[k]);
        if (out.kind != pol_kind::samples) to[0] = static_cast<std::uint8_t>((v[0] + 128) >> 8); // wraps
    }

    void colour(std::int32_t i, std::uint16_t* bgr) const {
        if (cells < 2 || cell_lines_total < 2) {
            bgr[0] = bgr[1] = bgr[2] = own.intensity[i];
            return;
        }
        const std::int32_t last = cells / 2 - 1, at = 2 * (i / 2 < last ? i / 2 : last);
        bgr[0] = block[0][at];
        bgr[1] = static_cast<std::uint16_t>((block[0][at + 1] + block[1][at] + 1) >> 1);
        bgr[2] = block[1][at + 1];
    }

    void view_pixel(std::int32_t i, std::uint8_t* to) const {
        const float hue = static_cast<float>(own.angle[i]) * (6.0F / 65536.0F);
        const float saturation = static_cast<float>(own.degree[i]) * (1.0F / 65535.0F);
        const auto value = static_cast<float>(rounded(own.intensity[i]));
        for (int k = 0; k < 3; ++k) {
            float side = static_cast<float>(1 + 2 * k) + hue; // blue 1, green 3, red 5 sixths
            if (side >= 6.0F) side = side - 6.0F;
            float share = side < 4.0F - side ? side : 4.0F - side;
            share = share < 0.0F ? 0.0F : share > 1.0F ? 1.0F : share;
            to[k] = static_cast<std::uint8_t>(nearest(value - value * saturation * share));
        }
        to[3] = 255;
    }

    static std::uint8_t rounded(std::uint16_t v) { return static_cast<std::uint8_t>((v - (v >> 8) + 128) >> 8); }

    const kernel_call& call;
    pol_format out;
    sample_layout in;
    std::int32_t cells, cell_lines_total;
    bool full_size;
    std::uint16_t* raw[2]{};
    cell_lines cell{};
    stokes_lines own{}, rest{};
    std::uint16_t* block[2]{}; // intensities of the two lines of cells that have the colours
};

template <class Rows>
constexpr kernel_row polarisation_rows[] = {
    {fcc("ADI1"), fcc("P180"), &polarisation_lines<Rows>::run, 1, 1, 2, 2},
    {fcc("PPM1"), fcc("P180"), &polarisation_lines<Rows>::run, 1, 1, 2, 2},
    {fcc("BGR4"), fcc("P180"), &polarisation_lines<Rows>::run, 1, 1, 2, 2},
    {fcc("ADC1"), fcc("P280"), &polarisation_lines<Rows>::run, 1, 1, 2, 2},
    {fcc("PPB1"), fcc("P280"), &polarisation_lines<Rows>::run, 1, 1, 2, 2},
    {fcc("BGR4"), fcc("P280"), &polarisation_lines<Rows>::run, 1, 1, 2, 2},
    {fcc("ADI2"), fcc("P116"), &polarisation_lines<Rows>::run, 1, 1, 2, 2},
    {fcc("PPM2"), fcc("P116"), &polarisation_lines<Rows>::run, 1, 1, 2, 2},
    {fcc("ADI2"), fcc("P1CP"), &polarisation_lines<Rows>::run, 1, 1, 2, 2},
    {fcc("PPM2"), fcc("P1CP"), &polarisation_lines<Rows>::run, 1, 1, 2, 2},
    {fcc("ADI2"), fcc("P1Cp"), &polarisation_lines<Rows>::run, 1, 1, 2, 2},
    {fcc("PPM2"), fcc("P1Cp"), &polarisation_lines<Rows>::run, 1, 1, 2, 2},
    {fcc("ADC2"), fcc("P216"), &polarisation_lines<Rows>::run, 1, 1, 2, 2},
    {fcc("PPB2"), fcc("P216"), &polarisation_lines<Rows>::run, 1, 1, 2, 2},
    {fcc("ADC2"), fcc("P2CP"), &polarisation_lines<Rows>::run, 1, 1, 2, 2},
    {fcc("PPB2"), fcc("P2CP"), &polarisation_lines<Rows>::run, 1, 1, 2, 2},
    {fcc("ADC2"), fcc("P2Cp"), &polarisation_lines<Rows>::run, 1, 1, 2, 2},
    {fcc("PPB2"), fcc("P2Cp"), &polarisation_lines<Rows>::run, 1, 1, 2, 2},
    {},
};

} // namespace
} // namespace img_pipe
