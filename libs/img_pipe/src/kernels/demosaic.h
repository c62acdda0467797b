// Demosaicing: a strip in tiles of columns, each walked down once. Lines of every step live in rings that stay in the
// cache, so a frame is read once and written once. The level's steps come as `Rows<T>`; T is 8 bits where bytes come in
// or nothing but bytes goes out, 16 bits otherwise.
//
// Line y of a result needs the mosaic's lines y - 3 to y + 3; outside the image they are its mirror. Every value
// depends on the mosaic alone, not on where strips or tiles begin.
#pragma once
#include "colour_out.h"

namespace img_pipe {
namespace {

constexpr std::int32_t mosaic_reach = 3; // cells that a result reaches on each side
constexpr std::int32_t lead = 16;        // pixels that a tile reads on each side; a whole number of packed groups
// Steps begin this many cells before the tile, where lines are aligned; what they make of cells beyond the reach is
// never used.
constexpr std::int32_t first_step = -lead / 2;
constexpr std::int32_t cells_before = 64 - first_step, cells_behind = 64;
// Cells of a tile. Lines longer than this are rare: a tile writes each line of the destination in a piece, and memory
// likes long pieces.
constexpr std::int32_t tile_cells = 2048;

// The last `count` half lines, by line number from -2 * count on: few enough to stay in the first cache.
template <class T, std::int32_t count>
struct half_ring {
    T* base;
    std::size_t pitch;
    T* operator[](std::int32_t y) const {
        return base + pitch * (static_cast<std::uint32_t>(y + 2 * count) % count) + cells_before;
    }
};

template <template <class> class Rows, class T>
class demosaic_tile {
public:
    demosaic_tile(const kernel_call& call_, std::int32_t first_cell, std::int32_t cells_)
        : call(call_),
          params(static_cast<const demosaic_params*>(call_.params)),
          in(layout_of(call_.src.format)),
          corrected(params != nullptr && params->samples_on),
          first(2 * first_cell),
          cells(cells_),
          width(smaller(2 * cells, call.src.width - first)),
          pitch((static_cast<std::size_t>(cells + cells_before + cells_behind) * sizeof(T) + 63) / 64 * 64 / sizeof(T)),
          at(call_.scratch),
          half{take<5>(), take<5>()},
          green(take<3>()),
          difference(take<3>()),
          raw(take_line<std::uint16_t>(at, 2 * cells + 2 * lead) + lead),
          out(call_, first, width, at) {
        find_mirrored();
        if (sizeof(T) == 1 && corrected && in.pack == packing::plain8) curves.fill(params->samples);
    }

    void run() {
        for (std::int32_t y = -3; y < call.src.height + 3; ++y) {
            load(y);
            if (y < 1) continue;
            const green_step<T> below = green_of(y - 2);
            if (y < 3)
                Rows<T>::find_green(below);
            else
                emit(y - 3, below);
        }
        Rows<T>::finish();
    }

private:
    static std::int32_t smaller(std::int32_t a, std::int32_t b) { return a < b ? a : b; }
    template <std::int32_t count>
    half_ring<T, count> take() {
        half_ring<T, count> ring{reinterpret_cast<T*>(at), pitch};
        at += pitch * sizeof(T) * count;
        return ring;
    }
    // The mosaic's lines go by twos; strips begin on an even line.
    bool c_first(std::int32_t y) const { return ((y & 1) == 0) == (in.mosaic == phase::bg || in.mosaic == phase::rg); }
    bool red(std::int32_t y) const { return ((y & 1) == 0) == (in.mosaic == phase::gr || in.mosaic == phase::rg); }
    const T* c(std::int32_t y) const { return half[c_first(y) ? 0 : 1][y]; }
    const T* g(std::int32_t y) const { return half[c_first(y) ? 1 : 0][y]; }

    // The tile's first byte of line y of the mosaic, mirrored beyond the image.
    const std::uint8_t* source(std::int32_t y) const {
        const std::int32_t line = mirror(call.first_line + y, call.image_height);
        return line_of(call.src, line - call.first_line) + line_bytes(in, first);
    }

    // Line y of the mosaic, mirrored beyond the image.
    void load(std::int32_t y) {
        const std::int32_t all = call.src.width, line = mirror(call.first_line + y, call.image_height);
        const std::int32_t begin = first < lead ? 0 : first - lead, end = smaller(all, first + 2 * cells + lead);
        const std::uint8_t* from = line_of(call.src, line - call.first_line) + line_bytes(in, begin);
        const std::int32_t shift = (begin - first) / 2;
        split(y, from, read_end(call, in, line - call.first_line), end - begin, half[0][y] + shift, half[1][y] + shift);
        for (std::int32_t i = 0; i < mirrored_count; ++i) {
            const mirrored_cell& m = mirrored[i];
            half[m.side][y][m.to] = half[m.from_side][y][m.from];
        }
    }

    // Finds the cells beyond the image's edges, and those that they mirror.
    void find_mirrored() {
        const std::int32_t all = call.src.width;
        const auto add = [&](std::int32_t x) {
            const std::int32_t from = mirror(x, all);
            mirrored[mirrored_count++] = {x & 1, (x - first) >> 1, from & 1, (from - first) >> 1};
        };
        for (std::int32_t x = first - 2 * mosaic_reach; x < first && x < 0; ++x) add(x);
        for (std::int32_t x = all; x < first + 2 * (cells + mosaic_reach); ++x) add(x);
    }

    void split(std::int32_t y, const std::uint8_t* from, const std::uint8_t* from_end, std::int32_t n, T* even,
               T* odd) {
        if constexpr (sizeof(T) == 1) {
            if (in.pack == packing::plain8 && from_end - from >= n) {
                Rows<T>::split_bytes(from, n, even, odd);
                if (corrected) curves.apply_to_halves(call.first_line + y, n, even, odd);
                return;
            }
            if (!corrected && in.pack == packing::plain16 && from_end - from >= 2 * n)
                return Rows<T>::split_words(from, n, in.shift, even, odd);
        } else if (corrected && params->samples.offset == 0 && params->samples.table == nullptr &&
                   in.pack == packing::plain16 && from_end - from >= 2 * n) {
            return Rows<T>::split_corrected(params->samples, call.first_line + y, from, n, in.shift, even, odd);
        }
        Rows<T>::load(in, from, from_end, n, raw);
        if (corrected) Rows<T>::correct(params->samples, call.first_line + y, n, raw);
        Rows<T>::split_line(raw, n, even, odd);
    }

    green_step<T> green_of(std::int32_t y) const {
        return {{c(y), g(y), g(y - 1), g(y + 1), c(y - 2), c(y + 2), c_first(y)},
                first_step,
                cells + 1,
                green[y],
                difference[y]};
    }

    // Line y, and before it `below`: green of the line after it.
    void emit(std::int32_t y, const green_step<T>& below) {
        const mosaic_lines<T> lines{
            c(y),     g(y),         green[y],          difference[y], c(y - 1), green[y - 1], difference[y - 1],
            c(y + 1), green[y + 1], difference[y + 1], c_first(y),    red(y)};
        const auto pixels = [&] { return out.pixels(y, source(y + 4), line_bytes(in, 2)); };
        if (out.as_it_is()) return Rows<T>::green_and_pixels(below, lines, width, out.colours(), pixels());
        Rows<T>::find_green(below);
        if (out.finishes()) return out.put_finished(lines, pixels());
        Rows<T>::colours(lines, 0, cells, out.colours());
        out.put(y);
    }

    const kernel_call& call;
    const demosaic_params* params;
    sample_layout in;
    bool corrected;
    std::int32_t first, cells, width;
    std::size_t pitch;
    std::byte* at;
    half_ring<T, 5> half[2];
    half_ring<T, 3> green, difference;
    std::uint16_t* raw;
    byte_curves<Rows<T>> curves; // of corrected bytes
    struct mirrored_cell {
        std::int32_t side, to, from_side, from;
    } mirrored[4 * mosaic_reach + 2];
    std::int32_t mirrored_count = 0;
    colour_out<Rows, T> out;
};

template <template <class> class Rows, class T>
void demosaic_tiles(const kernel_call& call) {
    const std::int32_t cells = (call.src.width + 1) / 2;
    for (std::int32_t k = 0; k < cells; k += tile_cells)
        demosaic_tile<Rows, T>(call, k, cells - k < tile_cells ? cells - k : tile_cells).run();
}

// Matrix and gamma stretch small differences, so more than 8 bits go on until they are done.
template <template <class> class Rows>
void demosaic(const kernel_call& call) {
    const auto* params = static_cast<const demosaic_params*>(call.params);
    const bool stretched = params != nullptr && (params->matrix_on || params->gamma != nullptr);
    if (layout_of(call.src.format).pack == packing::plain8 || (call.dst.format != fcc("RGB6") && !stretched))
        demosaic_tiles<Rows, std::uint8_t>(call);
    else
        demosaic_tiles<Rows, std::uint16_t>(call);
}

template <template <class> class Rows>
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
