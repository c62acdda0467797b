// The steps of the demosaic, a vector at a time: bit-equal to the plain ones. Every step may write up to a vector past
// its last cell, into the padding of the line; nothing reads that.
#pragma once
#include "../plain/colour_out_rows.h"
#include "../plain/demosaic_rows.h"
#include "colour_rows-inl.h"

#include <hwy/cache_control.h>
#include <hwy/highway.h>

#include <cstring>

HWY_BEFORE_NAMESPACE();
namespace img_pipe {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

template <class T>
using lanes_of = hn::ScalableTag<T>;
template <class T>
using vec = hn::Vec<lanes_of<T>>;
template <class T>
constexpr std::int32_t lane_count = HWY_LANES(T);

template <class T>
HWY_INLINE vec<T> get(const T* p) {
    return hn::LoadU(lanes_of<T>(), p);
}
template <class T>
HWY_INLINE void put(vec<T> v, T* p) {
    hn::StoreU(v, lanes_of<T>(), p);
}
template <class V>
HWY_INLINE V mean(V a, V b) {
    return hn::AverageRound(a, b);
}
template <class V>
HWY_INLINE V difference_of(V a, V b) {
    return hn::Sub(hn::Max(a, b), hn::Min(a, b));
}
// base + up - down, within the range.
template <class V>
HWY_INLINE V moved(V base, V up, V down) {
    return hn::SaturatedAdd(hn::SaturatedSub(base, hn::SaturatedSub(down, up)), hn::SaturatedSub(up, down));
}

// Bytes of even and of odd places.
HWY_INLINE void split_v(vec<std::uint8_t> a, vec<std::uint8_t> b, std::uint8_t* even, std::uint8_t* odd) {
    const lanes_of<std::uint8_t> tag;
    put(hn::ConcatEven(tag, b, a), even);
    put(hn::ConcatOdd(tag, b, a), odd);
}

[[maybe_unused]] HWY_ATTR void split_bytes_v(const std::uint8_t* line, std::int32_t n, std::uint8_t* even,
                                             std::uint8_t* odd) {
    constexpr std::int32_t step = lane_count<std::uint8_t>;
    std::int32_t x = 0;
    const auto at = [&](std::int32_t i)
                        HWY_ATTR { split_v(get(line + i), get(line + i + step), even + i / 2, odd + i / 2); };
    for (; x + 2 * step <= n; x += 2 * step) at(x);
    if (n % 2 == 0 && n >= 2 * step) return at(n - 2 * step); // the last vectors once more, ending with the line
    split_bytes(line + x, n - x, even + x / 2, odd + x / 2);
}

[[maybe_unused]] HWY_ATTR void split_words_v(const std::uint8_t* line, std::int32_t n, int shift, std::uint8_t* even,
                                             std::uint8_t* odd) {
    const lanes_of<std::uint8_t> tag;
    const lanes_of<std::uint16_t> wide;
    constexpr std::int32_t step = lane_count<std::uint8_t>;
    std::int32_t x = 0;
    const auto upper = [&](std::int32_t at) HWY_ATTR {
        const auto word = [&](std::int32_t i)
                              HWY_ATTR { return hn::ShiftLeftSame(hn::BitCast(wide, get(line + 2 * at + i)), shift); };
        return hn::ConcatOdd(tag, hn::BitCast(tag, word(step)), hn::BitCast(tag, word(0)));
    };
    const auto at = [&](std::int32_t i) HWY_ATTR { split_v(upper(i), upper(i + step), even + i / 2, odd + i / 2); };
    for (; x + 2 * step <= n; x += 2 * step) at(x);
    if (n % 2 == 0 && n >= 2 * step) return at(n - 2 * step);
    split_words(line + 2 * x, n - x, shift, even + x / 2, odd + x / 2);
}

template <class T>
HWY_ATTR void split_line_v(const std::uint16_t* line, std::int32_t n, T* even, T* odd) {
    const lanes_of<std::uint16_t> wide;
    constexpr std::int32_t step = lane_count<std::uint16_t>;
    std::int32_t x = 0;
    if constexpr (sizeof(T) == 1) {
        const lanes_of<std::uint8_t> tag;
        const auto upper = [&](std::int32_t at) HWY_ATTR {
            return hn::ConcatOdd(tag, hn::BitCast(tag, get(line + at + step)), hn::BitCast(tag, get(line + at)));
        };
        for (; x + 4 * step <= n; x += 4 * step) split_v(upper(x), upper(x + 2 * step), even + x / 2, odd + x / 2);
    } else {
        for (; x + 2 * step <= n; x += 2 * step) {
            vec<std::uint16_t> a, b;
            hn::LoadInterleaved2(wide, line + x, a, b);
            put(a, even + x / 2);
            put(b, odd + x / 2);
        }
    }
    split_line(line + x, n - x, even + x / 2, odd + x / 2);
}

template <class T>
HWY_INLINE vec<T> half_difference_v(vec<T> a, vec<T> b) {
    return mean(a, hn::Not(b));
}

template <bool c_first, class T>
HWY_INLINE void green_at(const green_lines<T>& in, std::int32_t k, T* green, T* difference) {
    constexpr std::int32_t w = c_first ? -1 : 0;
    const auto zero = hn::Zero(lanes_of<T>());
    const auto c = get(in.c + k);
    const auto left = get(in.g + k + w), right = get(in.g + k + w + 1);
    const auto up = get(in.g_above + k), down = get(in.g_below + k);
    const auto g_h = mean(left, right), g_v = mean(up, down);
    const auto c_h = mean(get(in.c + k - 1), get(in.c + k + 1)), c_v = mean(get(in.c_above + k), get(in.c_below + k));
    const auto step_h = difference_of(left, right), step_v = difference_of(up, down);
    const auto along = mean(step_h, difference_of(c, c_h)), across = mean(step_v, difference_of(c, c_v));
    const auto is_along = hn::Eq(hn::Min(along, across), along);
    const auto limit = hn::SaturatedAdd(difference_of(g_h, g_v), hn::Min(step_h, step_v));
    const auto c_mean = hn::IfThenElse(is_along, c_h, c_v);
    const auto above = hn::Min(mean(hn::SaturatedSub(c, c_mean), zero), limit),
               below = hn::Min(mean(hn::SaturatedSub(c_mean, c), zero), limit);
    const auto found = hn::SaturatedSub(hn::SaturatedAdd(hn::IfThenElse(is_along, g_h, g_v), above), below);
    put(found, green + k);
    put(half_difference_v<T>(c, found), difference + k);
}

// The records of lines are copied into the loops' functions: as references they would be read again after every store,
// for bytes may lie anywhere.
template <bool c_first, class T>
HWY_ATTR void find_green_of(const green_step<T>& s_) {
    const auto s = s_;
    for (std::int32_t k = s.first; k < s.end; k += lane_count<T>) green_at<c_first>(s.lines, k, s.green, s.difference);
}

template <class T>
HWY_ATTR void find_green_v(const green_step<T>& s) {
    (s.lines.c_first ? find_green_of<true, T> : find_green_of<false, T>)(s);
}

// Means and extremes of two samples of a colour, of their greens and differences.
template <class V>
struct neighbours {
    V c_mean, c_most, c_least, g_mean, d_most, d_least;
};
template <class V>
HWY_INLINE neighbours<V> two(V c0, V c1, V g0, V g1, V d0, V d1) {
    return {mean(c0, c1), hn::Max(c0, c1), hn::Min(c0, c1), mean(g0, g1), hn::Max(d0, d1), hn::Min(d0, d1)};
}
template <class V>
HWY_INLINE neighbours<V> both(const neighbours<V>& a, const neighbours<V>& b) {
    return {mean(a.c_mean, b.c_mean), hn::Max(a.c_most, b.c_most), hn::Min(a.c_least, b.c_least),
            mean(a.g_mean, b.g_mean), hn::Max(a.d_most, b.d_most), hn::Min(a.d_least, b.d_least)};
}

template <class T>
HWY_INLINE vec<T> colour_between_v(vec<T> g, const neighbours<vec<T>>& n) {
    const lanes_of<T> tag;
    const auto limit = mean(hn::Sub(n.c_most, n.c_least), hn::Set(tag, static_cast<T>(least_edge<T>)));
    const auto keeps = hn::Eq(hn::SaturatedSub(hn::Sub(n.d_most, n.d_least), limit), hn::Zero(tag));
    return hn::IfThenElse(keeps, moved(n.c_mean, g, n.g_mean), n.c_mean);
}

// The colours of a vector of cells, by even and odd column: blue, green, red.
template <class V>
struct cell_colours {
    V even[3], odd[3];
};

template <bool c_first, bool red, class T>
HWY_INLINE cell_colours<vec<T>> colours_at(const mosaic_lines<T>& in, std::int32_t k) {
    constexpr std::int32_t other_side = c_first ? -1 : 1; // from k to the second cell of the diagonal neighbours
    const auto c = get(in.c + k), g = get(in.g + k), green = get(in.green + k);
    const auto column = [&](std::int32_t i) HWY_ATTR {
        return two(get(in.c_above + i), get(in.c_below + i), get(in.green_above + i), get(in.green_below + i),
                   get(in.difference_above + i), get(in.difference_below + i));
    };
    const auto vertical = column(k);
    const auto beside = two(c, get(in.c + k - other_side), green, get(in.green + k - other_side),
                            get(in.difference + k), get(in.difference + k - other_side));
    const auto other_at_g = colour_between_v<T>(g, vertical);
    const auto own_at_g = colour_between_v<T>(g, beside);
    const auto other_at_c = colour_between_v<T>(green, both(vertical, column(k + other_side)));
    cell_colours<vec<T>> out;
    auto& at_c = c_first ? out.even : out.odd;
    auto& at_g = c_first ? out.odd : out.even;
    constexpr int own = red ? 2 : 0, other = 2 - own;
    at_c[own] = c;
    at_c[1] = green;
    at_c[other] = other_at_c;
    at_g[own] = own_at_g;
    at_g[1] = g;
    at_g[other] = other_at_g;
    return out;
}

// Even and odd columns by turns.
template <class T>
HWY_INLINE void put_by_turns(vec<T> even, vec<T> odd, T* to) {
    hn::StoreInterleaved2(even, odd, lanes_of<T>(), to);
}

template <bool c_first, bool red, class T>
HWY_ATTR void colours_of(const mosaic_lines<T>& in_, std::int32_t first, std::int32_t end, three<T> out) {
    const auto in = in_;
    for (std::int32_t k = first; k < end; k += lane_count<T>) {
        const auto c = colours_at<c_first, red>(in, k);
        for (int i = 0; i < 3; ++i) put_by_turns(c.even[i], c.odd[i], out.line[i] + 2 * k);
    }
}

template <class T>
HWY_ATTR void colours_v(const mosaic_lines<T>& in, std::int32_t first, std::int32_t end, three<T> out) {
    if (in.c_first)
        (in.red ? colours_of<true, true, T> : colours_of<true, false, T>)(in, first, end, out);
    else
        (in.red ? colours_of<false, true, T> : colours_of<false, false, T>)(in, first, end, out);
}

// How a vector of cells is stored: pixels of three samples or of four, the last of which is opaque.
enum class way_out : std::uint8_t { three, four, four_past_caches };
template <way_out way, class T>
constexpr std::int32_t cell_bytes = 2 * (way == way_out::three ? 3 : 4) * static_cast<std::int32_t>(sizeof(T));

template <way_out way, class V>
HWY_INLINE void put_part(V v, std::uint8_t* to) {
    const lanes_of<std::uint8_t> tag;
    if constexpr (way == way_out::four_past_caches)
        hn::Stream(hn::BitCast(tag, v), tag, to); // `to` is aligned to a vector
    else
        hn::StoreU(hn::BitCast(tag, v), tag, to);
}

// 2 * lanes pixels, in the order of their places: memory behind the caches is written in lines of 64 bytes.
template <way_out way, class T>
HWY_INLINE void put_cells(const cell_colours<vec<T>>& c, std::uint8_t* to) {
    const lanes_of<T> tag;
    const hn::RepartitionToWide<lanes_of<T>> wide;
    vec<T> lower[3], upper[3]; // of each block of 16 bytes the first and the second half
    for (int i = 0; i < 3; ++i) {
        lower[i] = hn::InterleaveLower(tag, c.even[i], c.odd[i]);
        upper[i] = hn::InterleaveUpper(tag, c.even[i], c.odd[i]);
    }
    if constexpr (way == way_out::three) {
#if HWY_TARGET == HWY_AVX2
        const auto first = [&](int i) HWY_ATTR { return hn::ConcatLowerLower(tag, upper[i], lower[i]); };
        const auto second = [&](int i) HWY_ATTR { return hn::ConcatUpperUpper(tag, upper[i], lower[i]); };
#else
        const auto first = [&](int i) HWY_ATTR { return lower[i]; };
        const auto second = [&](int i) HWY_ATTR { return upper[i]; };
#endif
        static_assert(sizeof(T) == 1);
        hn::StoreInterleaved3(first(0), first(1), first(2), tag, to);
        hn::StoreInterleaved3(second(0), second(1), second(2), tag, to + 3 * lane_count<T>);
    } else {
        const auto opaque = hn::Set(tag, static_cast<T>(most_of<T>));
        constexpr std::int32_t vector_bytes = lane_count<std::uint8_t>;
        vec<T> p[8]; // 16 bytes of pixels of each block
        for (int i = 0; i < 2; ++i) {
            const auto& part = i == 0 ? lower : upper;
            const auto bg0 = hn::BitCast(wide, hn::InterleaveLower(tag, part[0], part[1]));
            const auto bg1 = hn::BitCast(wide, hn::InterleaveUpper(tag, part[0], part[1]));
            const auto ra0 = hn::BitCast(wide, hn::InterleaveLower(tag, part[2], opaque));
            const auto ra1 = hn::BitCast(wide, hn::InterleaveUpper(tag, part[2], opaque));
            p[4 * i] = hn::BitCast(tag, hn::InterleaveLower(wide, bg0, ra0));
            p[4 * i + 1] = hn::BitCast(tag, hn::InterleaveUpper(wide, bg0, ra0));
            p[4 * i + 2] = hn::BitCast(tag, hn::InterleaveLower(wide, bg1, ra1));
            p[4 * i + 3] = hn::BitCast(tag, hn::InterleaveUpper(wide, bg1, ra1));
        }
#if HWY_TARGET == HWY_AVX2
        for (int i = 0; i < 8; i += 2) put_part<way>(hn::ConcatLowerLower(tag, p[i + 1], p[i]), to + 16 * i);
        for (int i = 0; i < 8; i += 2)
            put_part<way>(hn::ConcatUpperUpper(tag, p[i + 1], p[i]), to + 4 * vector_bytes + 16 * i);
#else
        for (int i = 0; i < 8; ++i) put_part<way>(p[i], to + vector_bytes * i);
#endif
    }
}

// Green of a line and the colours of the line above it, by turns, so that memory takes one vector while the next is
// computed. Colours follow two vectors behind, from cell `from` on; returns the first cell that they did not come to.
template <bool c_first, bool red, way_out way, class T>
HWY_ATTR std::int32_t walk_of(const green_step<T>& below_, const mosaic_lines<T>& in_, std::int32_t from,
                              std::int32_t cells, const pixel_lines& out_) {
    const auto below = below_;
    const auto in = in_;
    const auto out = out_;
    std::uint8_t* const to = out.to;
    constexpr std::int32_t step = lane_count<T>;
    constexpr std::ptrdiff_t cell = cell_bytes<way, T>;
    std::int32_t k = from, green = below.first;
    for (; green < below.first + 2 * step && green < below.end; green += step)
        green_at<!c_first>(below.lines, green, below.green, below.difference);
    for (; k + step <= cells && green < below.end; k += step, green += step) {
        for (std::int32_t i = 0; i < out.next_step * step; i += 64) hwy::Prefetch(out.next + out.next_step * k + i);
        green_at<!c_first>(below.lines, green, below.green, below.difference);
        put_cells<way, T>(colours_at<c_first, red>(in, k), to + cell * k);
    }
    for (; green < below.end; green += step) green_at<!c_first>(below.lines, green, below.green, below.difference);
    for (; k + step <= cells; k += step) put_cells<way, T>(colours_at<c_first, red>(in, k), to + cell * k);
    return k;
}

// Of the vector of cells from k on those of [begin, end) alone: what lies past the caches beside them stays there.
template <bool c_first, bool red, way_out way, class T>
HWY_ATTR void put_some_cells(const mosaic_lines<T>& in, std::int32_t k, std::int32_t begin, std::int32_t end,
                             std::uint8_t* to) {
    constexpr std::int32_t cell = cell_bytes<way, T>;
    alignas(64) std::uint8_t part[cell * lane_count<T>];
    put_cells<way, T>(colours_at<c_first, red>(in, k), part);
    std::memcpy(to + cell * begin, part + cell * (begin - k), static_cast<std::size_t>(cell * (end - begin)));
}

template <bool c_first, bool red, class T>
HWY_ATTR void green_and_pixels_of(const green_step<T>& below, const mosaic_lines<T>& in, std::int32_t width,
                                  three<T> line, pixel_lines out) {
    constexpr std::int32_t step = lane_count<T>, cell = cell_bytes<way_out::four, T>;
    const std::int32_t cells = width / 2;
    // Past the caches from the first whole line of 64 bytes on.
    const auto misplaced = static_cast<std::int32_t>(-reinterpret_cast<std::uintptr_t>(out.to) % 64);
    std::int32_t k = 0;
    bool of_three = false;
    if constexpr (sizeof(T) == 1) of_three = out.channels == 3;
    if (of_three) {
        if constexpr (sizeof(T) == 1) k = walk_of<c_first, red, way_out::three>(below, in, 0, cells, out);
    } else if (out.past_caches && misplaced % cell == 0 && misplaced / cell + step <= cells) {
        k = walk_of<c_first, red, way_out::four_past_caches>(below, in, misplaced / cell, cells, out);
        if (misplaced != 0) put_some_cells<c_first, red, way_out::four>(in, 0, 0, misplaced / cell, out.to);
    } else {
        k = walk_of<c_first, red, way_out::four>(below, in, 0, cells, out);
    }
    if (2 * k >= width) return;
    // What is no whole vector.
    if (width % 2 == 0 && cells >= step) {
        if constexpr (sizeof(T) == 1)
            if (of_three) return put_some_cells<c_first, red, way_out::three>(in, cells - step, k, cells, out.to);
        return put_some_cells<c_first, red, way_out::four>(in, cells - step, k, cells, out.to);
    }
    colours_of<c_first, red>(in, k, (width + 1) / 2, line);
    join_pixels(out.channels, three<const T>{{line.line[0], line.line[1], line.line[2]}}, 2 * k, width, out.to);
}

template <class T>
HWY_ATTR void green_and_pixels_v(const green_step<T>& below, const mosaic_lines<T>& in, std::int32_t width,
                                 three<T> line, pixel_lines out) {
    const auto run = in.c_first ? in.red ? green_and_pixels_of<true, true, T> : green_and_pixels_of<true, false, T>
                     : in.red ? green_and_pixels_of<false, true, T>
                                : green_and_pixels_of<false, false, T>;
    run(below, in, width, line, out);
}

// Once all lines are written: what went past the caches is there for other threads too.
[[maybe_unused]] HWY_ATTR void finish_v() { hwy::FlushStream(); }

[[maybe_unused]] HWY_ATTR void gamma_words_v(const power_curve* curve, const std::uint16_t* table, std::int32_t x,
                                             std::int32_t n, std::uint16_t* line) {
    if (curve == nullptr) return look_up_words_v(table, n - x, line + x);
    x = curve->rising ? power_words<true>(*curve, x, n, line) : power_words<false>(*curve, x, n, line);
    gamma_words(curve, table, x, n, line);
}

// A row of the matrix as factors of the pairs (blue, green) and (red, white).
struct matrix_row {
    v16i bg, rw;
    hn::Vec<d32i> half;
    std::int32_t bits;
    template <class T>
    explicit HWY_INLINE matrix_row(const T& row)
        : bg(factors(row.m[0], row.m[1])),
          rw(factors(row.m[2], row.of_white)),
          half(hn::Set(d32i(), 1 << row.bits >> 1)),
          bits(row.bits) {}
    // Four or eight results in 32 bits.
    HWY_INLINE hn::Vec<d32i> operator()(v16i bg_pairs, v16i rw_pairs) const {
        return hn::ShiftRightSame(hn::Add(hn::Add(pair_sums(bg_pairs, bg), half), pair_sums(rw_pairs, rw)), bits);
    }
};

// The arithmetic of apply_fixed_matrix on a vector of each colour.
HWY_INLINE void matrix_on(const matrix_row (&rows)[3], v8 (&c)[3]) {
    const auto white = hn::Set(d8(), std::uint8_t{255});
    const auto bg_low = hn::InterleaveLower(d8(), c[0], c[1]), bg_high = hn::InterleaveUpper(d8(), c[0], c[1]);
    const auto rw_low = hn::InterleaveLower(d8(), c[2], white), rw_high = hn::InterleaveUpper(d8(), c[2], white);
    const v16i bg[4] = {lower_half(bg_low), upper_half(bg_low), lower_half(bg_high), upper_half(bg_high)};
    const v16i rw[4] = {lower_half(rw_low), upper_half(rw_low), lower_half(rw_high), upper_half(rw_high)};
    for (int i = 0; i < 3; ++i)
        c[i] = pack_bytes(hn::ReorderDemote2To(d16i(), rows[i](bg[0], rw[0]), rows[i](bg[1], rw[1])),
                          hn::ReorderDemote2To(d16i(), rows[i](bg[2], rw[2]), rows[i](bg[3], rw[3])));
}
HWY_INLINE void matrix_on(const matrix_row (&rows)[3], hn::Vec<d16> (&c)[3]) {
    const auto white = hn::Set(d16i(), std::int16_t{32767});
    const auto upper_15 = [&](int i) HWY_ATTR { return hn::BitCast(d16i(), hn::ShiftRight<1>(c[i])); };
    const v16i b = upper_15(0), g = upper_15(1), r = upper_15(2);
    const auto bg_low = hn::InterleaveLower(d16i(), b, g), bg_high = hn::InterleaveUpper(d16i(), b, g);
    const auto rw_low = hn::InterleaveLower(d16i(), r, white), rw_high = hn::InterleaveUpper(d16i(), r, white);
    for (int i = 0; i < 3; ++i) {
        const auto sum = hn::ReorderDemote2To(d16i(), rows[i](bg_low, rw_low), rows[i](bg_high, rw_high));
        const auto v = hn::BitCast(d16(), hn::Max(sum, hn::Zero(d16i()))); // at most 32767
        c[i] = hn::Or(hn::ShiftLeft<1>(v), hn::ShiftRight<14>(v));
    }
}

template <class T>
HWY_ATTR void fixed_matrix_v(const fixed_matrix<T>& f, std::int32_t x, std::int32_t n, three<T> lines) {
    const matrix_row rows[3] = {matrix_row(f.rows[0]), matrix_row(f.rows[1]), matrix_row(f.rows[2])};
    for (; x + lane_count<T> <= n; x += lane_count<T>) {
        vec<T> c[3] = {get(lines.line[0] + x), get(lines.line[1] + x), get(lines.line[2] + x)};
        matrix_on(rows, c);
        for (int i = 0; i < 3; ++i) put(c[i], lines.line[i] + x);
    }
    apply_fixed_matrix(f, x, n, lines);
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace img_pipe
HWY_AFTER_NAMESPACE();
