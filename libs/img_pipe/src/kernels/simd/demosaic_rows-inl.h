// The steps of the demosaic, a vector at a time: bit-equal to the plain ones. Every step may write up to a vector past
// its last cell, into the padding of the line; nothing reads that.
#pragma once
#include "../plain/demosaic_rows.h"
#include "split_rows-inl.h"

#include <hwy/cache_control.h>
#include <hwy/highway.h>

#include <cstring>

HWY_BEFORE_NAMESPACE();
namespace img_pipe {
namespace HWY_NAMESPACE {
namespace {

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
    const auto above_h = hn::SaturatedSub(c, c_h), below_h = hn::SaturatedSub(c_h, c);
    const auto above_v = hn::SaturatedSub(c, c_v), below_v = hn::SaturatedSub(c_v, c);
    const auto along = mean(step_h, hn::Or(above_h, below_h)), across = mean(step_v, hn::Or(above_v, below_v));
    const auto is_along = hn::Eq(hn::Min(along, across), along);
    const auto limit = hn::SaturatedAdd(difference_of(g_h, g_v), hn::Min(step_h, step_v));
    const auto above = hn::Min(mean(hn::IfThenElse(is_along, above_h, above_v), zero), limit),
               below = hn::Min(mean(hn::IfThenElse(is_along, below_h, below_v), zero), limit);
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
    // Lines of differences lie equally far behind those of greens: one place for three pointers.
    const std::ptrdiff_t difference = in.difference - in.green;
    const auto column = [&](std::int32_t i) HWY_ATTR {
        return two(get(in.c_above + i), get(in.c_below + i), get(in.green_above + i), get(in.green_below + i),
                   get(in.green_above + (i + difference)), get(in.green_below + (i + difference)));
    };
    const auto vertical = column(k);
    const auto beside = two(c, get(in.c + k - other_side), green, get(in.green + k - other_side),
                            get(in.green + (k + difference)), get(in.green + (k + difference) - other_side));
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

// Blocks of 16 bytes of three colours to three blocks of pixels.
class joined_by_three {
public:
    HWY_INLINE joined_by_three(vec<std::uint8_t> b, vec<std::uint8_t> g, vec<std::uint8_t> r) {
        const lanes_of<std::uint8_t> tag;
        // Each byte of a colour has a place of its own in a block, whichever of the three blocks it goes to.
        alignas(16) static constexpr std::uint8_t places[3][16] = {
            {0, 11, 6, 1, 12, 7, 2, 13, 8, 3, 14, 9, 4, 15, 10, 5},
            {5, 0, 11, 6, 1, 12, 7, 2, 13, 8, 3, 14, 9, 4, 15, 10},
            {10, 5, 0, 11, 6, 1, 12, 7, 2, 13, 8, 3, 14, 9, 4, 15}};
        alignas(16) static constexpr std::uint8_t every_third[2][16] = {
            {255, 0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 255},
            {0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0}};
        const auto first = hn::MaskFromVec(hn::LoadDup128(tag, every_third[0])),
                   second = hn::MaskFromVec(hn::LoadDup128(tag, every_third[1]));
        const auto placed = [&](vec<std::uint8_t> v, int i)
                                HWY_ATTR { return hn::TableLookupBytes(v, hn::LoadDup128(tag, places[i])); };
        const auto by_turns = [&](vec<std::uint8_t> x, vec<std::uint8_t> y, vec<std::uint8_t> z)
                                  HWY_ATTR { return hn::IfThenElse(first, x, hn::IfThenElse(second, y, z)); };
        b = placed(b, 0), g = placed(g, 1), r = placed(r, 2);
        part[0] = by_turns(b, g, r);
        part[1] = by_turns(g, r, b);
        part[2] = by_turns(r, b, g);
    }
    vec<std::uint8_t> part[3];
};

// A vector of pixels of three bytes, whose blocks are in order.
HWY_INLINE void put_by_three(vec<std::uint8_t> b, vec<std::uint8_t> g, vec<std::uint8_t> r, std::uint8_t* to) {
    constexpr std::int32_t step = lane_count<std::uint8_t>;
    const joined_by_three p(b, g, r);
#if HWY_TARGET == HWY_AVX2
    const lanes_of<std::uint8_t> tag;
    put(hn::ConcatLowerLower(tag, p.part[1], p.part[0]), to);
    put(hn::ConcatUpperLower(tag, p.part[0], p.part[2]), to + step);
    put(hn::ConcatUpperUpper(tag, p.part[2], p.part[1]), to + 2 * step);
#else
    for (int i = 0; i < 3; ++i) put(p.part[i], to + i * step);
#endif
}

// 2 * lanes pixels, in the order of their places: memory behind the caches is written in lines of 64 bytes.
template <way_out way, class T>
HWY_INLINE void put_cells(const cell_colours<vec<T>>& c, std::uint8_t* to) {
    const lanes_of<T> tag;
    const hn::RepartitionToWide<lanes_of<T>> wide;
    constexpr std::int32_t vector_bytes = lane_count<std::uint8_t>;
    vec<T> lower[3], upper[3]; // of each block of 16 bytes the first and the second half
    for (int i = 0; i < 3; ++i) {
        lower[i] = hn::InterleaveLower(tag, c.even[i], c.odd[i]);
        upper[i] = hn::InterleaveUpper(tag, c.even[i], c.odd[i]);
    }
    if constexpr (way == way_out::three) {
        static_assert(sizeof(T) == 1);
        const joined_by_three l(lower[0], lower[1], lower[2]), u(upper[0], upper[1], upper[2]);
#if HWY_TARGET == HWY_AVX2
        put(hn::ConcatLowerLower(tag, l.part[1], l.part[0]), to);
        put(hn::ConcatLowerLower(tag, u.part[0], l.part[2]), to + vector_bytes);
        put(hn::ConcatLowerLower(tag, u.part[2], u.part[1]), to + 2 * vector_bytes);
        put(hn::ConcatUpperUpper(tag, l.part[1], l.part[0]), to + 3 * vector_bytes);
        put(hn::ConcatUpperUpper(tag, u.part[0], l.part[2]), to + 4 * vector_bytes);
        put(hn::ConcatUpperUpper(tag, u.part[2], u.part[1]), to + 5 * vector_bytes);
#else
        for (int i = 0; i < 3; ++i) {
            put(l.part[i], to + i * vector_bytes);
            put(u.part[i], to + (3 + i) * vector_bytes);
        }
#endif
    } else {
        const auto opaque = hn::Set(tag, static_cast<T>(most_of<T>));
        vec<T> p[2][4]; // pixels of the lower and of the upper halves
        for (int i = 0; i < 2; ++i) {
            vec<T> part[3];
            for (int k = 0; k < 3; ++k) part[k] = eights_to_blocks<T>(i == 0 ? lower[k] : upper[k]);
            const auto bg0 = hn::BitCast(wide, hn::InterleaveLower(tag, part[0], part[1]));
            const auto bg1 = hn::BitCast(wide, hn::InterleaveUpper(tag, part[0], part[1]));
            const auto ra0 = hn::BitCast(wide, hn::InterleaveLower(tag, part[2], opaque));
            const auto ra1 = hn::BitCast(wide, hn::InterleaveUpper(tag, part[2], opaque));
            p[i][0] = hn::BitCast(tag, hn::InterleaveLower(wide, bg0, ra0));
            p[i][1] = hn::BitCast(tag, hn::InterleaveUpper(wide, bg0, ra0));
            p[i][2] = hn::BitCast(tag, hn::InterleaveLower(wide, bg1, ra1));
            p[i][3] = hn::BitCast(tag, hn::InterleaveUpper(wide, bg1, ra1));
        }
        // The halves of two blocks come by turns, those of one block one after the other.
        constexpr int run = HWY_TARGET == HWY_AVX2 ? 2 : 4;
        for (int i = 0; i < 8; ++i) put_part<way>(p[i / run % 2][i % run + i / (2 * run) * run], to + vector_bytes * i);
    }
}

// Has what the next line of the mosaic is read from on its way, `bytes` at a time, 128 at most.
class next_line {
public:
    HWY_INLINE next_line(const pixel_lines& out, std::int32_t first, std::int32_t step)
        : at(out.next + std::ptrdiff_t{out.next_step} * first), bytes(std::ptrdiff_t{out.next_step} * step) {}
    HWY_INLINE void fetch() {
        hwy::Prefetch(at);
        if (bytes > 64) hwy::Prefetch(at + 64);
        at += bytes;
    }

private:
    const std::uint8_t* at;
    std::ptrdiff_t bytes;
};

// Green of a line and the colours of the line above it, by turns, so that memory takes one vector while the next is
// computed. Colours follow two vectors behind, from cell `from` on; returns the first cell that they did not come to.
template <bool c_first, bool red, way_out way, class T>
HWY_ATTR std::int32_t walk_of(const green_step<T>& below_, const mosaic_lines<T>& in_, std::int32_t from,
                              std::int32_t cells, const pixel_lines& out_) {
    const auto below = below_;
    auto in = in_;
    const auto out = out_;
    // The same lines: as one pointer each they need not be read from memory again and again.
    in.g = below.lines.g_above;
    in.c_above = below.lines.c_above;
    in.c_below = below.lines.c;
    in.green_below = below.green;
    std::uint8_t* const to = out.to;
    constexpr std::int32_t step = lane_count<T>;
    constexpr std::ptrdiff_t cell = cell_bytes<way, T>;
    std::int32_t k = from, green = below.first;
    for (; green < below.first + 2 * step && green < below.end; green += step)
        green_at<!c_first>(below.lines, green, below.green, below.difference);
    next_line next(out, k, step);
    for (; k + step <= cells && green < below.end; k += step, green += step) {
        next.fetch();
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
    std::memcpy(to + cell * begin, part + cell * (begin - k),
                static_cast<std::size_t>(cell) * static_cast<std::size_t>(end - begin));
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

} // namespace
} // namespace HWY_NAMESPACE
} // namespace img_pipe
HWY_AFTER_NAMESPACE();
