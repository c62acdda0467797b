// Per-sample correction of a line in the 16-bit form, a vector at a time.
#pragma once
#include "../plain/correct_rows.h"
#include "level_ops-inl.h"
#include "power_curve-inl.h"

#include <hwy/highway.h>

#include <type_traits>

HWY_BEFORE_NAMESPACE();
namespace img_pipe {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

struct no_power {
    explicit HWY_INLINE no_power(const power_curve*) {}
    template <class V>
    HWY_INLINE V operator()(V v) const {
        return v;
    }
};
template <bool rising>
struct with_power : power_vectors<rising> {
    explicit HWY_INLINE with_power(const power_curve* curve) : power_vectors<rising>(*curve) {}
};

// The gains of a line's two sites, the offset and the curve, on a vector of samples that begins with an even one. As
// the plain correct_sample without a table: bit-equal, no multiply-add is fused.
template <bool shifted, class Power>
struct vector_correction {
    hn::Vec<hn::ScalableTag<float>> gain, offset;
    Power power;
    HWY_INLINE vector_correction(const sample_params& p, std::int32_t y) : power(p.curve) {
        const hn::ScalableTag<float> df;
        const float* g = p.gain + (y & 1) * 2;
        gain = hn::OddEven(hn::Set(df, g[1]), hn::Set(df, g[0]));
        offset = hn::Set(df, p.offset);
    }
    HWY_INLINE hn::Vec<hn::ScalableTag<std::uint16_t>> operator()(hn::Vec<hn::ScalableTag<std::uint16_t>> v) const {
        const hn::ScalableTag<std::uint16_t> du;
        const auto part = [&](auto lanes) HWY_ATTR {
            const hn::ScalableTag<float> df;
            const hn::ScalableTag<std::int32_t> di;
            const auto r = hn::Mul(hn::ConvertTo(df, hn::BitCast(di, lanes)), gain);
            if constexpr (shifted)
                return hn::Add(r, offset);
            else
                return r;
        };
        const auto none = hn::Zero(du);
        return power(pack_nearest(part(hn::InterleaveLower(du, v, none)), part(hn::InterleaveUpper(du, v, none))));
    }
};

// f with the type of the vector_correction that the parameters ask for.
template <class T>
struct of_type {
    using type = T;
};
template <class F>
HWY_INLINE void with_correction(const sample_params& p, F f) {
    const auto shifted = [&]<bool s>(std::bool_constant<s>) HWY_ATTR {
        if (p.curve == nullptr)
            f(of_type<vector_correction<s, no_power>>());
        else if (p.curve->rising)
            f(of_type<vector_correction<s, with_power<true>>>());
        else
            f(of_type<vector_correction<s, with_power<false>>>());
    };
    if (p.offset != 0)
        shifted(std::true_type());
    else
        shifted(std::false_type());
}

template <class Correction>
HWY_ATTR std::int32_t correct_vectors(const sample_params& p, std::int32_t y, std::int32_t width, std::uint16_t* line) {
    const hn::ScalableTag<std::uint16_t> du;
    constexpr std::int32_t n = HWY_LANES(std::uint16_t);
    const Correction c(p, y);
    std::int32_t x = 0;
    for (; x + n <= width; x += n) hn::StoreU(c(hn::LoadU(du, line + x)), du, line + x);
    return x;
}

[[maybe_unused]] HWY_ATTR void look_up_words_v(const std::uint16_t* table, std::int32_t width, std::uint16_t* line) {
    std::int32_t x = 0;
    for (; x + 8 <= width; x += 8) look_up_eight(table, line + x, line + x);
    for (; x < width; ++x) line[x] = table[line[x]];
}

// As the plain correct_line.
[[maybe_unused]] HWY_ATTR void correct_line_v(const sample_params& p, std::int32_t y, std::int32_t width,
                                              std::uint16_t* line) {
    std::int32_t x = 0;
    with_correction(p, [&]<class C>(of_type<C>) HWY_ATTR { x = correct_vectors<C>(p, y, width, line); });
    if (p.table != nullptr && p.curve == nullptr) look_up_words_v(p.table, x, line);
    correct_line(p, y, width - x, line + x);
}

using bytes_tag = hn::ScalableTag<std::uint8_t>;
using vec_bytes = hn::Vec<bytes_tag>;

// A table of 256 bytes as 16 parts of 16, found by the lower four bits of an index. The upper four bits act one after
// another: part i holds what its bits change in what the parts before it gave, so that a part is masked and added in.
struct table_parts {
    alignas(16) std::uint8_t at[256];
};
HWY_INLINE void split_table(const std::uint8_t* table, table_parts& parts) {
    const hn::Full128<std::uint8_t> block;
    for (int i = 0; i < 256; i += 16) hn::Store(hn::LoadU(block, table + i), block, parts.at + i);
    for (int bit = 16; bit < 256; bit *= 2)
        for (int i = 0; i < 256; i += 16)
            if ((i & bit) != 0)
                hn::Store(hn::Xor(hn::Load(block, parts.at + i), hn::Load(block, parts.at + (i ^ bit))), block,
                          parts.at + i);
}
HWY_INLINE vec_bytes look_up_256(const table_parts& parts, vec_bytes v) {
    const bytes_tag tag;
    const hn::RebindToSigned<bytes_tag> with_sign;
    const hn::RepartitionToWide<bytes_tag> wide;
    const auto low = hn::And(v, hn::Set(tag, std::uint8_t{0x0F}));
    const auto words = hn::BitCast(wide, v);
    const auto is_set = [&](auto shifted) HWY_ATTR {
        return hn::BitCast(tag,
                           hn::VecFromMask(with_sign, hn::Lt(hn::BitCast(with_sign, shifted), hn::Zero(with_sign))));
    };
    const auto bit4 = is_set(hn::ShiftLeft<3>(words)), bit5 = is_set(hn::ShiftLeft<2>(words)),
               bit6 = is_set(hn::ShiftLeft<1>(words)), bit7 = is_set(words);
    const auto part = [&](int i) HWY_ATTR { return hn::TableLookupBytes(hn::LoadDup128(tag, parts.at + 16 * i), low); };
    const auto two = [&](int i) HWY_ATTR { return hn::Xor(part(i), hn::And(bit4, part(i + 1))); };
    const auto four = [&](int i) HWY_ATTR { return hn::Xor(two(i), hn::And(bit5, two(i + 2))); };
    const auto eight = [&](int i) HWY_ATTR { return hn::Xor(four(i), hn::And(bit6, four(i + 4))); };
    return hn::Xor(eight(0), hn::And(bit7, eight(8)));
}

[[maybe_unused]] HWY_ATTR void look_up_sites_v(const std::uint8_t* even, const std::uint8_t* odd,
                                               const std::uint8_t* in, std::int32_t width, std::uint8_t* out) {
    const bytes_tag tag;
    constexpr std::int32_t step = HWY_LANES(std::uint8_t);
    std::int32_t x = 0;
    table_parts of_even, of_odd;
    split_table(even, of_even);
    if (even == odd) {
        for (; x + step <= width; x += step) hn::StoreU(look_up_256(of_even, hn::LoadU(tag, in + x)), tag, out + x);
    } else {
        split_table(odd, of_odd);
        for (; x + 2 * step <= width; x += 2 * step) {
            const auto a = hn::LoadU(tag, in + x), b = hn::LoadU(tag, in + x + step);
            hn::StoreInterleaved2(look_up_256(of_even, hn::ConcatEven(tag, b, a)),
                                  look_up_256(of_odd, hn::ConcatOdd(tag, b, a)), tag, out + x);
        }
    }
    look_up_sites(even, odd, in + x, width - x, out + x);
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace img_pipe
HWY_AFTER_NAMESPACE();
