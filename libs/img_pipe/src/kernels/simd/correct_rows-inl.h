// Per-sample correction of a line in the 16-bit form, a vector at a time.
#pragma once
#include "../plain/correct_rows.h"

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace img_pipe {
namespace HWY_NAMESPACE {
namespace {

// As the plain correct_line: bit-equal, no multiply-add is fused. May write up to a vector past the line (its padding).
[[maybe_unused]] HWY_ATTR void correct_line_v(const sample_params& p, std::int32_t y, std::int32_t width,
                                              std::uint16_t* line) {
    namespace hn = hwy::HWY_NAMESPACE;
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

} // namespace
} // namespace HWY_NAMESPACE
} // namespace img_pipe
HWY_AFTER_NAMESPACE();
