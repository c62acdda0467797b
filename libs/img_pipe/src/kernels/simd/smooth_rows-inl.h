// Means of neighbouring samples, a vector at a time; the rest of a line by the plain step.
#pragma once
#include "../plain/smooth_rows.h"

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace img_pipe {
namespace HWY_NAMESPACE {
namespace {

[[maybe_unused]] HWY_ATTR void mean_2x2_v(const std::uint8_t* upper, const std::uint8_t* lower, std::int32_t x,
                                          std::int32_t n, std::uint8_t* out) {
    namespace hn = hwy::HWY_NAMESPACE;
    const hn::ScalableTag<std::uint16_t> wide;
    const hn::Rebind<std::uint8_t, decltype(wide)> narrow_tag;
    const auto lanes = static_cast<std::int32_t>(hn::Lanes(wide));
    const auto at = [&](const std::uint8_t* p) HWY_ATTR { return hn::PromoteTo(wide, hn::LoadU(narrow_tag, p)); };
    const auto two = hn::Set(wide, 2);
    for (; x + lanes <= n; x += lanes) {
        const auto sum = hn::Add(hn::Add(at(upper + x), at(upper + x + 1)), hn::Add(at(lower + x), at(lower + x + 1)));
        hn::StoreU(hn::TruncateTo(narrow_tag, hn::ShiftRight<2>(hn::Add(sum, two))), narrow_tag, out + x);
    }
    mean_2x2(upper, lower, x, n, out);
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace img_pipe
HWY_AFTER_NAMESPACE();
