// Demosaicing: a strip in tiles of columns, each walked down once. Lines of every step live in rings that stay in the
// cache, so a frame is read once and written once. The level's steps come as `Rows`.
//
// Line y of a result needs the mosaic's lines y - 5 to y + 5; outside the image they are its mirror. Every value
// depends on the mosaic alone, not on where strips or tiles begin.
#pragma once
#include "colour_out.h"

namespace img_pipe {
namespace {

constexpr std::int32_t tile_cells = 512;
constexpr std::int32_t lead = 16; // pixels that a tile reads on each side; a whole number of packed groups

template <class Rows>
class demosaic_tile {
public:
    demosaic_tile(const kernel_call& call_, std::int32_t first_cell, std::int32_t cells_)
        : call(call_),
          params(static_cast<const demosaic_params*>(call_.params)),
          in(layout_of(call_.src.format)),
          bytes(in.pack == packing::plain8),
          corrected(params != nullptr && params->samples_on),
          first(2 * first_cell),
          cells(cells_),
          pitch(ring_pitch(cells_)),
          at(call_.scratch),
          out(call_, bytes, first, smaller(2 * cells, call.src.width - first), at, pitch),
          half{take_halves(at, pitch, 8), take_halves(at, pitch, 8)},
          along(take_halves(at, pitch, 4)),
          across(take_halves(at, pitch, 8)),
          step_h(take_halves(at, pitch, 8)),
          step_v(take_halves(at, pitch, 4)),
          chosen(take_halves(at, pitch, 4)),
          raw(take_ring(at, 2 * cells, out.is_16() ? 8 : 1)) {
        for (int i = 0; i < 2; ++i)
            for (s15** to : {&colour.r[i], &colour.g[i], &colour.b[i]}) *to = take_halves(at, pitch, 1).s(0);
    }

    void run() {
        for (std::int32_t y = -5; y < call.src.height + 5; ++y) {
            load(y);
            if (y >= -1) find_candidates(y - 2);
            if (y >= 1) Rows::steps(across[y - 4], across[y - 2], -2, cells + 2, step_v[y - 4]);
            if (y >= 3) choose(y - 4);
            if (y >= 5) emit(y - 5);
        }
    }

private:
    static std::int32_t smaller(std::int32_t a, std::int32_t b) { return a < b ? a : b; }
    // The mosaic's lines go by twos; strips begin on an even line.
    bool c_first(std::int32_t y) const { return ((y & 1) == 0) == (in.mosaic == phase::bg || in.mosaic == phase::rg); }
    bool red(std::int32_t y) const { return ((y & 1) == 0) == (in.mosaic == phase::gr || in.mosaic == phase::rg); }
    const s15* c(std::int32_t y) const { return half[c_first(y) ? 0 : 1].s(y); }
    const s15* g(std::int32_t y) const { return half[c_first(y) ? 1 : 0].s(y); }

    // Line y of the mosaic, mirrored beyond the image.
    void load(std::int32_t y) {
        const std::int32_t width = call.src.width, line = mirror(call.first_line + y, call.image_height);
        const std::int32_t begin = first < lead ? 0 : first - lead, end = smaller(width, first + 2 * cells + lead);
        const std::uint8_t* from = line_of(call.src, line - call.first_line) + line_bytes(in, begin);
        s15 *even = half[0].s(y), *odd = half[1].s(y);
        const std::int32_t shift = (begin - first) / 2;
        if (bytes && !corrected) {
            Rows::split_bytes(from, end - begin, even + shift, odd + shift);
        } else {
            std::uint16_t* samples = raw.line(y) + (begin - first);
            Rows::load(in, from, call.data_end, end - begin, samples);
            if (corrected) Rows::correct(params->samples, call.first_line + y, end - begin, samples);
            Rows::split_line(samples, end - begin, bytes, even + shift, odd + shift);
        }
        // Not (x odd ? odd : even)[...]: g++ 12 with UBSan computes such an index on one of the two ways only.
        const auto at_pixel = [&](std::int32_t x) -> s15& { return half[x & 1].s(y)[(x - first) >> 1]; };
        for (std::int32_t x = first - 2 * mosaic_reach; x < begin; ++x) at_pixel(x) = at_pixel(mirror(x, width));
        for (std::int32_t x = end; x < first + 2 * (cells + mosaic_reach); ++x)
            at_pixel(x) = at_pixel(mirror(x, width));
    }

    void find_candidates(std::int32_t y) {
        Rows::candidates({c(y), g(y), g(y - 1), g(y + 1), c(y - 2), c(y + 2), c_first(y)}, -2, cells + 3, along[y],
                         across[y]);
        Rows::steps(along[y], along[y] + 1, -2, cells + 2, step_h[y]);
    }

    void choose(std::int32_t y) {
        Rows::choose({{step_h[y - 2], step_h[y - 1], step_h[y], step_h[y + 1], step_h[y + 2]},
                      {step_v[y - 2], step_v[y - 1], step_v[y]},
                      along[y],
                      {across[y - 2], across[y], across[y + 2]},
                      c_first(y)},
                     -1, cells + 1, chosen[y]);
    }

    void emit(std::int32_t y) {
        const mosaic_lines lines{c(y),     g(y),     chosen[y],  chosen[y - 1], chosen[y + 1],
                                 c(y - 1), c(y + 1), c_first(y), red(y)};
        Rows::colours(lines, cells, colour);
        out.put(y, colour, {raw.line(y), red(y), c_first(y) ? 0 : 1});
    }

    const kernel_call& call;
    const demosaic_params* params;
    sample_layout in;
    bool bytes, corrected;
    std::int32_t first, cells;
    std::size_t pitch;
    std::byte* at;
    colour_out<Rows> out;
    half_ring half[2], along, across, step_h, step_v, chosen;
    row_ring raw;
    colour_halves colour{};
};

template <class Rows>
void demosaic(const kernel_call& call) {
    const std::int32_t cells = (call.src.width + 1) / 2;
    for (std::int32_t k = 0; k < cells; k += tile_cells)
        demosaic_tile<Rows>(call, k, cells - k < tile_cells ? cells - k : tile_cells).run();
}

template <class Rows>
kernel_fn find_demosaic_of(std::uint32_t destination, std::uint32_t source) {
    const sample_layout in = layout_of(source);
    if (in.pack == packing::none || in.mosaic == phase::grey) return nullptr;
    switch (destination) {
    case fcc("RGB6"):
        if (in.pack == packing::plain8) return nullptr;
        [[fallthrough]];
    case fcc("BGR3"):
    case fcc("BGR4"):
    case fcc("I420"):
    case fcc("YV12"):
    case fcc("Y800"):
        return &demosaic<Rows>;
    default:
        return nullptr;
    }
}

} // namespace
} // namespace img_pipe
