// A mosaic's line to half lines of even and of odd columns, a vector at a time: bit-equal to the plain steps.
#pragma once
#include "../plain/demosaic_rows.h"
#include "colour_rows-inl.h"

#include <hwy/highway.h>

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
// To 0 to 65535, clamped, within each block of 128 bits.
HWY_INLINE vec<std::uint16_t> pack_words32(hn::Vec<d32i> low, hn::Vec<d32i> high) {
#if HWY_TARGET == HWY_AVX2
    return {_mm256_packus_epi32(low.raw, high.raw)};
#else
    const hn::Half<lanes_of<std::uint16_t>> half;
    return hn::Combine(lanes_of<std::uint16_t>(), hn::DemoteTo(half, high), hn::DemoteTo(half, low));
#endif
}

// Vectors of two blocks hold what belongs side by side in blocks by turns; one block is in order as it is.
// Eights of a vector: the first four of one block and of the other, taken by turns.
HWY_INLINE vec<std::uint8_t> eights_by_turns(vec<std::uint8_t> v) {
#if HWY_TARGET == HWY_AVX2
    const lanes_of<std::uint32_t> tag;
    alignas(32) static constexpr std::int32_t order[8] = {0, 4, 1, 5, 2, 6, 3, 7};
    return hn::BitCast(lanes_of<std::uint8_t>(),
                       hn::TableLookupLanes(hn::BitCast(tag, v), hn::SetTableIndices(tag, order)));
#else
    return v;
#endif
}
// Every second eighth into the first block, the others into the second.
template <class T>
HWY_INLINE vec<T> eights_to_blocks(vec<T> v) {
#if HWY_TARGET == HWY_AVX2
    const lanes_of<std::uint32_t> tag;
    alignas(32) static constexpr std::int32_t order[8] = {0, 2, 4, 6, 1, 3, 5, 7};
    return hn::BitCast(lanes_of<T>(), hn::TableLookupLanes(hn::BitCast(tag, v), hn::SetTableIndices(tag, order)));
#else
    return v;
#endif
}
// Quarters of a vector, as eights_by_turns.
HWY_INLINE vec<std::uint8_t> quarters_by_turns(vec<std::uint8_t> v) {
#if HWY_TARGET == HWY_AVX2
    const lanes_of<std::uint32_t> tag;
    alignas(32) static constexpr std::int32_t order[8] = {0, 1, 4, 5, 2, 3, 6, 7};
    return hn::BitCast(lanes_of<std::uint8_t>(),
                       hn::TableLookupLanes(hn::BitCast(tag, v), hn::SetTableIndices(tag, order)));
#else
    return v;
#endif
}

[[maybe_unused]] HWY_ATTR void split_bytes_v(const std::uint8_t* line, std::int32_t n, std::uint8_t* even,
                                             std::uint8_t* odd) {
    const lanes_of<std::uint8_t> tag;
    const lanes_of<std::uint64_t> halves;
    constexpr std::int32_t step = lane_count<std::uint8_t>;
    alignas(16) static constexpr std::uint8_t sides[16] = {0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15};
    const auto to_sides = hn::LoadDup128(tag, sides);
    std::int32_t x = 0;
    const auto at = [&](std::int32_t i) HWY_ATTR {
        const auto part = [&](std::int32_t k) HWY_ATTR {
            return hn::BitCast(halves, hn::TableLookupBytes(get(line + i + k), to_sides));
        };
        const auto a = part(0), b = part(step);
        put(quarters_by_turns(hn::BitCast(tag, hn::InterleaveLower(halves, a, b))), even + i / 2);
        put(quarters_by_turns(hn::BitCast(tag, hn::InterleaveUpper(halves, a, b))), odd + i / 2);
    };
    for (; x + 2 * step <= n; x += 2 * step) at(x);
    if (n % 2 == 0 && n >= 2 * step) return at(n - 2 * step); // the last vectors once more, ending with the line
    split_bytes(line + x, n - x, even + x / 2, odd + x / 2);
}

// The upper bytes of four vectors of words, by even and odd place.
HWY_INLINE void split_upper(vec<std::uint16_t> a, vec<std::uint16_t> b, vec<std::uint16_t> c, vec<std::uint16_t> d,
                            std::uint8_t* even, std::uint8_t* odd) {
    const lanes_of<std::uint8_t> tag;
    const lanes_of<std::uint32_t> quarters;
    const lanes_of<std::uint64_t> halves;
    alignas(16) static constexpr std::uint8_t sides[16] = {1, 5, 9, 13, 3, 7, 11, 15, 1, 5, 9, 13, 3, 7, 11, 15};
    const auto to_sides = hn::LoadDup128(tag, sides);
    const auto pair = [&](vec<std::uint16_t> first, vec<std::uint16_t> second) HWY_ATTR {
        const auto part = [&](vec<std::uint16_t> v) HWY_ATTR {
            return hn::BitCast(quarters, hn::TableLookupBytes(hn::BitCast(tag, v), to_sides));
        };
        return hn::BitCast(halves, hn::InterleaveLower(quarters, part(first), part(second)));
    };
    const auto ab = pair(a, b), cd = pair(c, d);
    put(eights_by_turns(hn::BitCast(tag, hn::InterleaveLower(halves, ab, cd))), even);
    put(eights_by_turns(hn::BitCast(tag, hn::InterleaveUpper(halves, ab, cd))), odd);
}

template <bool shifted>
HWY_ATTR void split_words_of(const std::uint8_t* line, std::int32_t n, int shift, std::uint8_t* even,
                             std::uint8_t* odd) {
    const lanes_of<std::uint16_t> wide;
    constexpr std::int32_t step = lane_count<std::uint16_t>;
    std::int32_t x = 0;
    const auto at = [&](std::int32_t i) HWY_ATTR {
        const auto word = [&](std::int32_t k) HWY_ATTR {
            const auto v = hn::BitCast(wide, get(line + 2 * (i + k)));
            if constexpr (shifted)
                return hn::ShiftLeftSame(v, shift);
            else
                return v;
        };
        split_upper(word(0), word(step), word(2 * step), word(3 * step), even + i / 2, odd + i / 2);
    };
    for (; x + 4 * step <= n; x += 4 * step) at(x);
    if (n % 2 == 0 && n >= 4 * step) return at(n - 4 * step);
    split_words(line + 2 * x, n - x, shift, even + x / 2, odd + x / 2);
}

[[maybe_unused]] HWY_ATTR void split_words_v(const std::uint8_t* line, std::int32_t n, int shift, std::uint8_t* even,
                                             std::uint8_t* odd) {
    (shift == 0 ? split_words_of<false> : split_words_of<true>)(line, n, shift, even, odd);
}

template <class T>
HWY_ATTR void split_line_v(const std::uint16_t* line, std::int32_t n, T* even, T* odd) {
    const lanes_of<std::uint16_t> wide;
    constexpr std::int32_t step = lane_count<std::uint16_t>;
    std::int32_t x = 0;
    if constexpr (sizeof(T) == 1) {
        for (; x + 4 * step <= n; x += 4 * step)
            split_upper(get(line + x), get(line + x + step), get(line + x + 2 * step), get(line + x + 3 * step),
                        even + x / 2, odd + x / 2);
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

// Words of 32-bit lanes, corrected if `on`, in the order of their places.
template <bool on>
HWY_INLINE vec<std::uint16_t> corrected_side(hn::Vec<hn::ScalableTag<std::uint32_t>> a,
                                             hn::Vec<hn::ScalableTag<std::uint32_t>> b,
                                             hn::Vec<hn::ScalableTag<float>> gain) {
    const lanes_of<std::uint16_t> tag;
    const lanes_of<std::uint8_t> bytes;
    const auto a_i = hn::BitCast(d32i(), a), b_i = hn::BitCast(d32i(), b);
    if constexpr (on) {
        const hn::ScalableTag<float> real;
        const auto packed =
            pack_nearest(hn::Mul(hn::ConvertTo(real, a_i), gain), hn::Mul(hn::ConvertTo(real, b_i), gain));
        return hn::BitCast(tag, quarters_by_turns(hn::BitCast(bytes, packed)));
    } else {
        return hn::BitCast(tag, quarters_by_turns(hn::BitCast(bytes, pack_words32(a_i, b_i))));
    }
}

template <bool even_on, bool odd_on>
HWY_ATTR std::int32_t split_corrected_of(const float* gain, const std::uint8_t* line, std::int32_t n, int shift,
                                         std::uint16_t* even, std::uint16_t* odd) {
    const lanes_of<std::uint16_t> wide;
    const lanes_of<std::uint32_t> pairs;
    const hn::ScalableTag<float> real;
    constexpr std::int32_t step = lane_count<std::uint16_t>;
    const auto even_gain = hn::Set(real, gain[0]), odd_gain = hn::Set(real, gain[1]);
    const auto low = hn::Set(pairs, 0xFFFFU);
    std::int32_t x = 0;
    for (; x + 2 * step <= n; x += 2 * step) {
        const auto pair = [&](std::int32_t i) HWY_ATTR {
            return hn::BitCast(pairs, hn::ShiftLeftSame(hn::BitCast(wide, get(line + 2 * i)), shift));
        };
        const auto a = pair(x), b = pair(x + step);
        put(corrected_side<even_on>(hn::And(a, low), hn::And(b, low), even_gain), even + x / 2);
        put(corrected_side<odd_on>(hn::ShiftRight<16>(a), hn::ShiftRight<16>(b), odd_gain), odd + x / 2);
    }
    return x;
}

// As the plain split_corrected. A gain of 1 costs nothing.
[[maybe_unused]] HWY_ATTR void split_corrected_v(const sample_params& p, std::int32_t y, const std::uint8_t* line,
                                                 std::int32_t n, int shift, std::uint16_t* even, std::uint16_t* odd) {
    const float* gain = p.gain + (y & 1) * 2;
    std::int32_t x = 0;
    if (gain[0] == 1)
        x = (gain[1] == 1 ? split_corrected_of<false, false> : split_corrected_of<false, true>)(gain, line, n, shift,
                                                                                                even, odd);
    else
        x = (gain[1] == 1 ? split_corrected_of<true, false> : split_corrected_of<true, true>)(gain, line, n, shift,
                                                                                              even, odd);
    split_corrected(p, y, line + 2 * x, n - x, shift, even + x / 2, odd + x / 2);
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace img_pipe
HWY_AFTER_NAMESPACE();
