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

// Corrections of a vector of samples that begins with an even one, by the gains of a line's two sites: as the plain
// correct_sample, bit-equal, no multiply-add is fused. In three steps, so that those of the vectors behind can be
// computed between those of this one: each waits for its own results longer than it computes.
using vec_samples = hn::Vec<hn::ScalableTag<std::uint16_t>>;

// Gains and the offset.
template <bool shifted>
struct gain_vectors {
    hn::Vec<hn::ScalableTag<float>> gain, offset;
    HWY_INLINE gain_vectors(const sample_params& p, std::int32_t y) {
        const hn::ScalableTag<float> df;
        const float* g = p.gain + (y & 1) * 2;
        gain = hn::OddEven(hn::Set(df, g[1]), hn::Set(df, g[0]));
        offset = hn::Set(df, p.offset);
    }
    HWY_INLINE vec_samples begin(vec_samples v) const {
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
        return pack_nearest(part(hn::InterleaveLower(du, v, none)), part(hn::InterleaveUpper(du, v, none)));
    }
    HWY_INLINE vec_samples halfway(vec_samples v) const { return v; }
    HWY_INLINE vec_samples end(vec_samples v) const { return v; }
};

// The same and a power's curve, by way of floats that are whole numbers.
enum class offset_way { none, up, down };
template <offset_way way, bool rising>
struct power_correction {
    struct lights {
        hn::Vec<hn::ScalableTag<float>> even, odd;
    };
    hn::Vec<hn::ScalableTag<float>> even_gain, odd_gain, offset;
    power_vectors<rising> power;
    HWY_INLINE power_correction(const sample_params& p, std::int32_t y) : power(*p.curve) {
        const hn::ScalableTag<float> df;
        const float* g = p.gain + (y & 1) * 2;
        even_gain = hn::Set(df, g[0]);
        odd_gain = hn::Set(df, g[1]);
        offset = hn::Set(df, p.offset);
    }
    HWY_INLINE lights begin(vec_samples v) const {
        const hn::ScalableTag<std::uint32_t> bits;
        const auto pairs = hn::BitCast(bits, v);
        const auto gained = [&](auto lanes, auto gain) HWY_ATTR {
            return hn::Mul(hn::ConvertTo(hn::ScalableTag<float>(), hn::BitCast(hn::ScalableTag<std::int32_t>(), lanes)),
                           gain);
        };
        return {gained(hn::And(pairs, hn::Set(bits, 0xFFFFU)), even_gain), gained(hn::ShiftRight<16>(pairs), odd_gain)};
    }
    HWY_INLINE typename power_vectors<rising>::places halfway(lights of) const {
        const auto whole = [&](auto r) HWY_ATTR {
            const hn::ScalableTag<float> df;
            if constexpr (way != offset_way::none) r = hn::Add(r, offset);
            if constexpr (way == offset_way::down) r = hn::Max(r, hn::Zero(df));
            return hn::Round(hn::Min(r, hn::Set(df, 65535.0F)));
        };
        return power.find(whole(of.even), whole(of.odd));
    }
    HWY_INLINE vec_samples end(typename power_vectors<rising>::places of) const { return power.at(of); }
};

// f with the type of the correction that the parameters ask for.
template <class T>
struct of_type {
    using type = T;
};
template <class F>
HWY_INLINE void with_correction(const sample_params& p, F f) {
    const auto along_curve = [&]<bool rising>(std::bool_constant<rising>) HWY_ATTR {
        if (p.offset == 0)
            f(of_type<power_correction<offset_way::none, rising>>());
        else if (p.offset > 0)
            f(of_type<power_correction<offset_way::up, rising>>());
        else
            f(of_type<power_correction<offset_way::down, rising>>());
    };
    if (p.curve == nullptr) {
        if (p.offset == 0)
            f(of_type<gain_vectors<false>>());
        else
            f(of_type<gain_vectors<true>>());
    } else if (p.curve->rising) {
        along_curve(std::true_type());
    } else {
        along_curve(std::false_type());
    }
}

// Returns how many it has done: all, or all but one. The last vector lies over the one before it where it must, and is
// read before that one is written. It is not the first to be read: a line's end is far from its beginning, and not in
// the cache yet.
template <class Correction>
HWY_ATTR std::int32_t correct_vectors(const sample_params& p, std::int32_t y, std::int32_t width, std::uint16_t* line) {
    const hn::ScalableTag<std::uint16_t> du;
    constexpr std::int32_t n = HWY_LANES(std::uint16_t);
    if (width < n) return 0;
    const Correction c(p, y);
    const std::int32_t last = (width - n) & ~1;
    const auto load = [&](std::int32_t x) HWY_ATTR { return hn::LoadU(du, line + (x < last ? x : last)); };
    auto next = c.halfway(c.begin(load(0)));
    auto after = c.begin(load(n));
    for (std::int32_t x = 0; x < last; x += n) {
        const auto own = next;
        next = c.halfway(after);
        after = c.begin(load(x + 2 * n));
        hn::StoreU(c.end(own), du, line + x);
    }
    hn::StoreU(c.end(next), du, line + last);
    return last + n;
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
