// Angle, degree and intensity of polarisation cells, a vector at a time; bit-equal to the plain steps.
#pragma once
#include "../plain/polarisation_rows.h"
#include "sample_rows-inl.h"

HWY_BEFORE_NAMESPACE();
namespace img_pipe {
namespace HWY_NAMESPACE {
namespace {

[[maybe_unused]] HWY_ATTR void split_pairs_v(const std::uint16_t* in, std::int32_t x, std::int32_t n,
                                             std::uint16_t* even, std::uint16_t* odd) {
    const d16 tag;
    const auto lanes = static_cast<std::int32_t>(hn::Lanes(tag));
    for (; x + lanes <= n; x += lanes) {
        hn::Vec<d16> a, b;
        hn::LoadInterleaved2(tag, in + 2 * x, a, b);
        hn::StoreU(a, tag, even + x);
        hn::StoreU(b, tag, odd + x);
    }
    split_pairs(in, x, n, even, odd);
}

[[maybe_unused]] HWY_ATTR void find_stokes_v(const cell_lines& in, std::int32_t x, std::int32_t n,
                                             const stokes_lines& out) {
    const hn::ScalableTag<float> df;
    const hn::Rebind<std::int32_t, decltype(df)> di;
    const hn::Rebind<std::uint16_t, decltype(df)> du;
    const auto lanes = static_cast<std::int32_t>(hn::Lanes(df));
    const auto set = [&](float v) HWY_ATTR { return hn::Set(df, v); };
    const auto zero = hn::Zero(df), half = set(0.5F), one = set(1.0F);
    const auto load = [&](const std::uint16_t* line)
                          HWY_ATTR { return hn::ConvertTo(df, hn::PromoteTo(di, hn::LoadU(du, line + x))); };
    for (; x + lanes <= n; x += lanes) {
        const auto a = load(in.i90), b = load(in.i45), c = load(in.i135), d = load(in.i0);
        const auto sum = hn::Mul(hn::Add(hn::Add(a, b), hn::Add(c, d)), half);
        const auto s1 = hn::Sub(d, a), s2 = hn::Sub(b, c);
        const auto polarised = hn::Div(hn::Sqrt(hn::Add(hn::Mul(s1, s1), hn::Mul(s2, s2))), hn::Max(sum, half));
        const auto h = hn::Abs(s1), v = hn::Abs(s2);
        const auto q = hn::Div(hn::Min(h, v), hn::Max(hn::Max(h, v), one)), square = hn::Mul(q, q);
        auto p = set(arc[0]);
        for (int i = 1; i < 9; ++i) p = hn::Add(hn::Mul(p, square), set(arc[i]));
        p = hn::Mul(p, q);
        p = hn::IfThenElse(hn::Gt(v, h), hn::Sub(set(half_pi), p), p);
        p = hn::IfThenElse(hn::Lt(s1, zero), hn::Sub(set(pi), p), p);
        p = hn::Mul(p, set(turns));
        p = hn::IfThenElse(hn::Lt(s2, zero), hn::Sub(one, p), p);
        const auto angle = hn::And(hn::NearestInt(hn::Mul(p, set(65536.0F))), hn::Set(di, 0xFFFF));
        hn::StoreU(hn::DemoteTo(du, angle), du, out.angle + x);
        hn::StoreU(hn::DemoteTo(du, hn::NearestInt(hn::Mul(hn::Min(polarised, one), set(65535.0F)))), du,
                   out.degree + x);
        hn::StoreU(hn::DemoteTo(du, hn::NearestInt(hn::Mul(sum, half))), du, out.intensity + x);
    }
    find_stokes(in, x, n, out);
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace img_pipe
HWY_AFTER_NAMESPACE();
