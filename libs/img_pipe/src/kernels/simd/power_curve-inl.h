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

    // Where samples lie: their place in the octave, and in both bytes of a word the octave's number + 1, which is 0 for
    // a sample of 0 alone. The top one's 16 finds the first entry of a table, which is 0, or gives 0 unasked.
    struct places {
        vec_words place, octave;
    };

    // Of samples of even and of odd places, whole numbers: a float's exponent is the octave, its mantissa the place in
    // it, no bit of which is lost.
    HWY_INLINE places find(hn::Vec<hn::ScalableTag<float>> even, hn::Vec<hn::ScalableTag<float>> odd) const {
        const words tag;
        const hn::ScalableTag<std::uint8_t> parts;
        const hn::ScalableTag<std::uint32_t> bits;
        alignas(16) static constexpr std::uint8_t exponents[16] = {2,  2,  0, 0, 6,  6,  4,  4,
                                                                   10, 10, 8, 8, 14, 14, 12, 12};
        const auto e = hn::ShiftRight<7>(hn::BitCast(bits, even)), o = hn::BitCast(bits, odd);
        const auto both = hn::OddEven(hn::BitCast(tag, e), hn::BitCast(tag, hn::ShiftRight<23>(o)));
        const auto octave =
            hn::SaturatedSub(hn::TableLookupBytes(hn::BitCast(parts, both), hn::LoadDup128(parts, exponents)),
                             hn::Set(parts, std::uint8_t{126}));
        return {hn::OddEven(hn::BitCast(tag, hn::ShiftLeft<9>(o)), hn::BitCast(tag, e)), hn::BitCast(tag, octave)};
    }

    HWY_INLINE vec_words at(places of) const {
        const words tag;
        const hn::ScalableTag<std::uint8_t> parts;
        const auto by_octave = hn::BitCast(parts, of.octave);
        const auto less = hn::BitCast(
            tag, hn::OddEven(hn::TableLookupBytes(less_high, by_octave), hn::TableLookupBytes(less_low, by_octave)));
        const auto piece = hn::And(of.place, hn::Set(tag, std::uint16_t{0xE000}));
        const auto by_piece = hn::BitCast(parts, hn::Or(hn::MulHigh(piece, hn::Set(tag, std::uint16_t{0x1010})),
                                                        hn::Set(tag, std::uint16_t{0x0100})));
        const auto of_piece = [&](vec_words table) HWY_ATTR {
            return hn::BitCast(tag, hn::TableLookupBytes(hn::BitCast(parts, table), by_piece));
        };
        const auto z = hn::ShiftLeft<3>(of.place);
        const auto bent = hn::MulHigh(z, of_piece(bend)), straight = of_piece(slope);
        const auto top =
            hn::Add(of_piece(base), hn::MulHigh(z, rising ? hn::Add(straight, bent) : hn::Sub(straight, bent)));
        return unless_zero(hn::Sub(top, hn::MulHigh(top, less)), of.octave);
    }

    HWY_INLINE vec_words operator()(vec_words v) const {
        const hn::ScalableTag<std::int32_t> whole;
        const hn::ScalableTag<std::uint32_t> bits;
        const hn::ScalableTag<float> real;
        const auto pairs = hn::BitCast(bits, v);
        const auto as_float = [&](auto lanes) HWY_ATTR { return hn::ConvertTo(real, hn::BitCast(whole, lanes)); };
        return at(find(as_float(hn::And(pairs, hn::Set(bits, 0xFFFFU))), as_float(hn::ShiftRight<16>(pairs))));
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
