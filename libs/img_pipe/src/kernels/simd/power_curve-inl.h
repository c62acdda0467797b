// The arithmetic of a power curve on a vector of 16-bit samples: bit-equal to the plain one.
#pragma once
#include "level_ops-inl.h"

#include <img_pipe/kernel_params.h>

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace img_pipe {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

// Words of `a` at even places, of `b` at odd ones.
template <class V>
HWY_INLINE vec_u16 even_odd_words(V a, V b) {
    const hn::ScalableTag<std::uint16_t> tag;
    return hn::OddEven(hn::BitCast(tag, b), hn::BitCast(tag, a));
}

// A curve in registers.
template <bool rising>
struct power_vectors {
    using words = hn::ScalableTag<std::uint16_t>;
    using vec_words = hn::Vec<words>;
    using vec_parts = hn::Vec<hn::ScalableTag<std::uint8_t>>;
    vec_words base, slope, bend;
    vec_parts less_low, less_high;

    explicit HWY_INLINE power_vectors(const power_curve& c) {
        const words tag;
        const hn::ScalableTag<std::uint8_t> parts;
        base = hn::LoadDup128(tag, c.base);
        slope = hn::LoadDup128(tag, c.slope);
        bend = hn::LoadDup128(tag, c.bend);
        less_low = hn::LoadDup128(parts, c.less_low);
        less_high = hn::LoadDup128(parts, c.less_high);
    }

    HWY_INLINE vec_words operator()(vec_words v) const {
        const words tag;
        const hn::ScalableTag<std::uint8_t> parts;
        const hn::ScalableTag<std::int32_t> whole;
        const hn::ScalableTag<std::uint32_t> bits;
        const hn::ScalableTag<float> real;
        const auto pairs = hn::BitCast(bits, v);
        const auto as_float = [&](auto lanes) HWY_ATTR {
            return hn::BitCast(bits, hn::ConvertTo(real, hn::BitCast(whole, lanes)));
        };
        // A float's exponent is the octave, its mantissa the place in it, no bit of which is lost.
        const auto even = as_float(hn::And(pairs, hn::Set(bits, 0xFFFFU))), odd = as_float(hn::ShiftRight<16>(pairs));
        const auto octave = even_odd_words(hn::ShiftRight<23>(even), hn::ShiftRight<7>(odd));
        const auto place = even_odd_words(hn::ShiftRight<7>(even), hn::ShiftLeft<9>(odd));
        // Both bytes of a word find theirs.
        const auto by_octave = hn::BitCast(
            parts, hn::And(hn::Mul(octave, hn::Set(tag, std::uint16_t{0x0101})), hn::Set(tag, std::uint16_t{0x0F0F})));
        const auto less = hn::BitCast(
            tag, hn::OddEven(hn::TableLookupBytes(less_high, by_octave), hn::TableLookupBytes(less_low, by_octave)));
        const auto piece = hn::And(place, hn::Set(tag, std::uint16_t{0xE000}));
        const auto by_piece = hn::BitCast(parts, hn::Or(hn::MulHigh(piece, hn::Set(tag, std::uint16_t{0x1010})),
                                                        hn::Set(tag, std::uint16_t{0x0100})));
        const auto of_piece = [&](vec_words table) HWY_ATTR {
            return hn::BitCast(tag, hn::TableLookupBytes(hn::BitCast(parts, table), by_piece));
        };
        const auto z = hn::ShiftLeft<3>(place);
        const auto bent = hn::MulHigh(z, of_piece(bend)), straight = of_piece(slope);
        const auto top =
            hn::Add(of_piece(base), hn::MulHigh(z, rising ? hn::Add(straight, bent) : hn::Sub(straight, bent)));
        return unless_zero(hn::Sub(top, hn::MulHigh(top, less)), octave);
    }
};

template <bool rising>
HWY_ATTR std::int32_t power_words(const power_curve& curve, std::int32_t x, std::int32_t n, std::uint16_t* line) {
    const hn::ScalableTag<std::uint16_t> tag;
    const power_vectors<rising> power(curve);
    constexpr std::int32_t step = HWY_LANES(std::uint16_t);
    for (; x + step <= n; x += step) hn::StoreU(power(hn::LoadU(tag, line + x)), tag, line + x);
    return x;
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace img_pipe
HWY_AFTER_NAMESPACE();
