// Per-sample correction of a line in the 16-bit form, a vector at a time.
#pragma once
#include "../plain/correct_rows.h"

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace img_pipe {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

// As the plain correct_line: bit-equal, no multiply-add is fused. May write up to a vector past the line (its padding).
[[maybe_unused]] HWY_ATTR void correct_line_v(const sample_params& p, std::int32_t y, std::int32_t width,
                                              std::uint16_t* line) {
    const hn::ScalableTag<float> df;
    const hn::Rebind<std::int32_t, decltype(df)> di;
    const hn::Rebind<std::uint16_t, decltype(df)> du;
    const float* g = p.gain + (y & 1) * 2;
    const auto gain = hn::OddEven(hn::Set(df, g[1]), hn::Set(df, g[0]));
    const auto offset = hn::Set(df, p.offset), zero = hn::Zero(df), most = hn::Set(df, 65535.0F);
    const auto n = static_cast<std::int32_t>(hn::Lanes(df));
    for (std::int32_t x = 0; x < width; x += n) {
        const auto v = hn::ConvertTo(df, hn::PromoteTo(di, hn::LoadU(du, line + x)));
        const auto r = hn::Min(hn::Max(hn::Add(hn::Mul(v, gain), offset), zero), most);
        hn::StoreU(hn::DemoteTo(du, hn::NearestInt(r)), du, line + x);
    }
    if (p.table != nullptr)
        for (std::int32_t x = 0; x < width; ++x) line[x] = p.table[line[x]];
}

// 16 tables of 16 by the lower four bits, then one of them by the upper bits, one after another.
HWY_INLINE hn::Vec<hn::ScalableTag<std::uint8_t>> look_up_256(const std::uint8_t* table,
                                                              hn::Vec<hn::ScalableTag<std::uint8_t>> v) {
    const hn::ScalableTag<std::uint8_t> tag;
    const hn::RebindToSigned<decltype(tag)> with_sign;
    const hn::RepartitionToWide<decltype(tag)> wide;
    const auto low = hn::And(v, hn::Set(tag, std::uint8_t{0x0F}));
    const auto words = hn::BitCast(wide, v);
    const auto is_set = [&](auto shifted) HWY_ATTR {
        return hn::RebindMask(tag, hn::Lt(hn::BitCast(with_sign, shifted), hn::Zero(with_sign)));
    };
    const auto bit4 = is_set(hn::ShiftLeft<3>(words)), bit5 = is_set(hn::ShiftLeft<2>(words)),
               bit6 = is_set(hn::ShiftLeft<1>(words)), bit7 = is_set(words);
    const auto part = [&](int i) HWY_ATTR { return hn::TableLookupBytes(hn::LoadDup128(tag, table + 16 * i), low); };
    const auto two = [&](int i) HWY_ATTR { return hn::IfThenElse(bit4, part(i + 1), part(i)); };
    const auto four = [&](int i) HWY_ATTR { return hn::IfThenElse(bit5, two(i + 2), two(i)); };
    const auto eight = [&](int i) HWY_ATTR { return hn::IfThenElse(bit6, four(i + 4), four(i)); };
    return hn::IfThenElse(bit7, eight(8), eight(0));
}

[[maybe_unused]] HWY_ATTR void look_up_sites_v(const std::uint8_t* even, const std::uint8_t* odd,
                                               const std::uint8_t* in, std::int32_t width, std::uint8_t* out) {
    const hn::ScalableTag<std::uint8_t> tag;
    constexpr std::int32_t step = HWY_LANES(std::uint8_t);
    std::int32_t x = 0;
    if (even == odd) {
        for (; x + step <= width; x += step) hn::StoreU(look_up_256(even, hn::LoadU(tag, in + x)), tag, out + x);
    } else {
        for (; x + 2 * step <= width; x += 2 * step) {
            const auto a = hn::LoadU(tag, in + x), b = hn::LoadU(tag, in + x + step);
            hn::StoreInterleaved2(look_up_256(even, hn::ConcatEven(tag, b, a)),
                                  look_up_256(odd, hn::ConcatOdd(tag, b, a)), tag, out + x);
        }
    }
    look_up_sites(even, odd, in + x, width - x, out + x);
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace img_pipe
HWY_AFTER_NAMESPACE();
