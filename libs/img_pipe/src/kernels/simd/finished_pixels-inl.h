// From the neighbours of a vector of cells to pixels of three or four bytes, matrix and gamma in registers on the way:
// bit-equal to the plain step.
#pragma once
#include "byte_map-inl.h"
#include "demosaic_rows-inl.h"
#include "fixed_matrix-inl.h"

HWY_BEFORE_NAMESPACE();
namespace img_pipe {
namespace HWY_NAMESPACE {
namespace {

struct no_curve {
    explicit HWY_INLINE no_curve(const byte_curve*) {}
    HWY_INLINE vec_bytes operator()(vec_bytes v) const { return v; }
};
template <int exact_count>
struct with_curve : curve_vectors<exact_count> {
    explicit HWY_INLINE with_curve(const byte_curve* c) : curve_vectors<exact_count>(*c) {}
};

template <class Curve>
struct finish_bytes {
    matrix_vectors<std::uint8_t> matrix;
    bool matrix_on;
    Curve curve;
    explicit HWY_INLINE finish_bytes(const colour_finish<std::uint8_t>& f)
        : matrix(f.matrix), matrix_on(f.matrix_on), curve(f.curve) {}
    HWY_INLINE void put(cell_colours<vec_bytes> c, std::int32_t channels, std::uint8_t* to) const {
        if (matrix_on) {
            matrix(c.even);
            matrix(c.odd);
        }
        for (int i = 0; i < 3; ++i) {
            c.even[i] = curve(c.even[i]);
            c.odd[i] = curve(c.odd[i]);
        }
        if (channels == 3)
            put_cells<way_out::three, std::uint8_t>(c, to);
        else
            put_cells<way_out::four, std::uint8_t>(c, to);
    }
};

// Words whose upper bytes are those of the picture.
struct finish_words {
    bool matrix_on;
    matrix_vectors<std::uint16_t> matrix;
    explicit HWY_INLINE finish_words(const colour_finish<std::uint16_t>& f)
        : matrix_on(f.matrix_on), matrix(f.matrix) {}
    HWY_INLINE void operator()(vec<std::uint16_t> (&c)[3]) const {
        if (matrix_on) matrix(c);
    }
};
struct finish_words_by_power {
    bool matrix_on;
    matrix_vectors<std::uint16_t> matrix;
    octave_places places; // of words
    power_byte_vectors power;
    explicit HWY_INLINE finish_words_by_power(const colour_finish<std::uint16_t>& f)
        : matrix_on(f.matrix_on), matrix(f.matrix), places(1), power(*f.power) {}
    HWY_INLINE void operator()(vec<std::uint16_t> (&c)[3]) const {
        const d16 tag;
        if (matrix_on)
            matrix.to_places(c);
        else
            for (auto& v : c)
                v = places(hn::BitCast(d32i(), hn::InterleaveLower(tag, v, hn::Zero(tag))),
                           hn::BitCast(d32i(), hn::InterleaveUpper(tag, v, hn::Zero(tag))));
        for (auto& v : c) v = power(v);
    }
};

template <class Words>
struct finish_to_bytes {
    Words words;
    explicit HWY_INLINE finish_to_bytes(const colour_finish<std::uint16_t>& f) : words(f) {}
    HWY_INLINE void put(cell_colours<vec<std::uint16_t>> c, std::int32_t channels, std::uint8_t* to) const {
        const bytes_tag tag;
        words(c.even);
        words(c.odd);
        // The upper bytes of an even and an odd column are neighbours already.
        vec_bytes out[3];
        for (int i = 0; i < 3; ++i)
            out[i] = hn::OddEven(hn::BitCast(tag, c.odd[i]), hn::BitCast(tag, hn::ShiftRight<8>(c.even[i])));
        if (channels == 3)
            put_by_three(out[0], out[1], out[2], to);
        else
            hn::StoreInterleaved4(out[0], out[1], out[2], hn::Set(tag, std::uint8_t{255}), tag, to);
    }
};

// Whole vectors of the cells from `first` on; returns the first cell that is not in one.
template <bool c_first, bool red, class Finish, class T>
HWY_ATTR std::int32_t finished_cells_of(const Finish& finish, const mosaic_lines<T>& in_, std::int32_t first,
                                        std::int32_t cells, const pixel_lines& out_) {
    const auto in = in_;
    const auto out = out_;
    std::int32_t k = first;
    next_line next(out, k, lane_count<T>);
    for (; k + lane_count<T> <= cells; k += lane_count<T>) {
        next.fetch();
        finish.put(colours_at<c_first, red>(in, k), out.channels, out.to + std::ptrdiff_t{2} * out.channels * k);
    }
    return k;
}

template <class Finish, class T>
HWY_ATTR void finished_of(const colour_finish<T>& f, const mosaic_lines<T>& in, std::int32_t width, three<T> line,
                          three8 bytes, const pixel_lines& out) {
    const Finish finish(f);
    const auto run = in.c_first
                         ? in.red ? finished_cells_of<true, true, Finish, T> : finished_cells_of<true, false, Finish, T>
                     : in.red ? finished_cells_of<false, true, Finish, T>
                              : finished_cells_of<false, false, Finish, T>;
    const std::int32_t cells = width / 2, k = run(finish, in, 0, cells, out);
    if (2 * k >= width) return;
    // What is no whole vector: the last ones once more, ending with the line.
    if (width % 2 == 0 && cells >= lane_count<T>) {
        run(finish, in, cells - lane_count<T>, cells, out);
        return;
    }
    colours_v(in, k, (width + 1) / 2, line);
    finish_line(f, 2 * k, width, line, bytes);
    join_bgr(out.channels, {{bytes.line[0], bytes.line[1], bytes.line[2]}}, 2 * k, width, out.to);
}

[[maybe_unused]] HWY_ATTR void finished_pixels_v(const colour_finish<std::uint8_t>& f,
                                                 const mosaic_lines<std::uint8_t>& in, std::int32_t width, three8 line,
                                                 three8 bytes, const pixel_lines& out) {
    const int exact = f.curve == nullptr ? -1 : f.curve->exact_count;
    const auto run = exact < 0    ? finished_of<finish_bytes<no_curve>, std::uint8_t>
                     : exact == 0 ? finished_of<finish_bytes<with_curve<0>>, std::uint8_t>
                     : exact == 1 ? finished_of<finish_bytes<with_curve<1>>, std::uint8_t>
                                  : finished_of<finish_bytes<with_curve<most_exact>>, std::uint8_t>;
    run(f, in, width, line, bytes, out);
}
[[maybe_unused]] HWY_ATTR void finished_pixels_v(const colour_finish<std::uint16_t>& f,
                                                 const mosaic_lines<std::uint16_t>& in, std::int32_t width,
                                                 three16 line, three8 bytes, const pixel_lines& out) {
    const auto run = f.power == nullptr ? finished_of<finish_to_bytes<finish_words>, std::uint16_t>
                                        : finished_of<finish_to_bytes<finish_words_by_power>, std::uint16_t>;
    run(f, in, width, line, bytes, out);
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace img_pipe
HWY_AFTER_NAMESPACE();
