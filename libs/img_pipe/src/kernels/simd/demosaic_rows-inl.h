// The steps of the demosaic, a vector at a time: bit-equal to the plain ones. Every step may write up to a vector past
// its last cell, into the padding of the line; nothing reads that.
#pragma once
#include "../plain/demosaic_rows.h"

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace img_pipe {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using dg_s = hn::ScalableTag<std::int16_t>;
using dg_u = hn::ScalableTag<std::uint16_t>;
using vec_s = hn::Vec<dg_s>;
using vec_u = hn::Vec<dg_u>;

HWY_INLINE vec_s get(const s15* p) { return hn::LoadU(dg_s(), p); }
HWY_INLINE vec_u get(const diff* p) { return hn::LoadU(dg_u(), p); }
HWY_INLINE vec_u as_u(vec_s v) { return hn::BitCast(dg_u(), v); }
HWY_INLINE vec_s as_s(vec_u v) { return hn::BitCast(dg_s(), v); }
// Of samples that are not below 0.
HWY_INLINE vec_s mean(vec_s a, vec_s b) { return as_s(hn::AverageRound(as_u(a), as_u(b))); }
HWY_INLINE vec_u mean(vec_u a, vec_u b) { return hn::AverageRound(a, b); }
template <class V>
HWY_INLINE V apart(V a, V b) {
    return hn::Sub(hn::Max(a, b), hn::Min(a, b));
}
HWY_INLINE vec_s without_bias(vec_u d) { return as_s(hn::Xor(d, hn::Set(dg_u(), 0x8000))); }

[[maybe_unused]] HWY_ATTR void split_bytes_v(const std::uint8_t* line, std::int32_t n, s15* even, s15* odd) {
    const auto step = static_cast<std::int32_t>(hn::Lanes(dg_u()));
    const hn::Repartition<std::uint8_t, dg_u> bytes;
    const auto low = hn::Set(dg_u(), 0x7F80);
    std::int32_t x = 0;
    for (; x + 2 * step <= n; x += 2 * step) {
        const auto v = hn::BitCast(dg_u(), hn::LoadU(bytes, line + x));
        hn::StoreU(as_s(hn::And(hn::ShiftLeft<7>(v), low)), dg_s(), even + x / 2);
        hn::StoreU(as_s(hn::And(hn::ShiftRight<1>(v), low)), dg_s(), odd + x / 2);
    }
    split_bytes(line + x, n - x, even + x / 2, odd + x / 2);
}

[[maybe_unused]] HWY_ATTR void split_line_v(const std::uint16_t* line, std::int32_t n, bool bytes, s15* even,
                                            s15* odd) {
    const auto step = static_cast<std::int32_t>(hn::Lanes(dg_u()));
    const auto mask = hn::Set(dg_u(), bytes ? 0x7F80 : 0x7FFF);
    std::int32_t x = 0;
    for (; x + 2 * step <= n; x += 2 * step) {
        vec_u a, b;
        hn::LoadInterleaved2(dg_u(), line + x, a, b);
        hn::StoreU(as_s(hn::And(hn::ShiftRight<1>(a), mask)), dg_s(), even + x / 2);
        hn::StoreU(as_s(hn::And(hn::ShiftRight<1>(b), mask)), dg_s(), odd + x / 2);
    }
    split_line(line + x, n - x, bytes, even + x / 2, odd + x / 2);
}

HWY_INLINE vec_u difference_v(vec_s c, vec_s g0, vec_s g1, vec_s c0, vec_s c1, vec_s low, vec_s high) {
    const auto green = hn::SaturatedAdd(mean(g0, g1), hn::ShiftRight<1>(hn::Sub(c, mean(c0, c1))));
    const auto kept = hn::Min(hn::Max(green, low), high);
    return hn::Sub(hn::Xor(as_u(c), hn::Set(dg_u(), 0x8000)), as_u(kept));
}

[[maybe_unused]] HWY_ATTR void candidates_v(const green_lines& in, std::int32_t first, std::int32_t end, diff* h,
                                            diff* v) {
    const auto step = static_cast<std::int32_t>(hn::Lanes(dg_u()));
    const std::int32_t w = in.c_first ? -1 : 0;
    const auto zero = hn::Zero(dg_s());
    for (std::int32_t k = first; k < end; k += step) {
        const auto c = get(in.c + k);
        const auto left = get(in.g + k + w), right = get(in.g + k + w + 1);
        const auto up = get(in.g_above + k), down = get(in.g_below + k);
        const auto least = hn::Min(hn::Min(left, right), hn::Min(up, down));
        const auto most = hn::Max(hn::Max(left, right), hn::Max(up, down));
        const auto range = hn::Sub(most, least);
        const auto low = hn::Max(hn::Sub(least, range), zero), high = hn::SaturatedAdd(most, range);
        hn::StoreU(difference_v(c, left, right, get(in.c + k - 1), get(in.c + k + 1), low, high), dg_u(), h + k);
        hn::StoreU(difference_v(c, up, down, get(in.c_above + k), get(in.c_below + k), low, high), dg_u(), v + k);
    }
}

[[maybe_unused]] HWY_ATTR void steps_v(const diff* a, const diff* b, std::int32_t first, std::int32_t end, diff* out) {
    const auto step = static_cast<std::int32_t>(hn::Lanes(dg_u()));
    for (std::int32_t k = first; k < end; k += step)
        hn::StoreU(hn::ShiftRight<5>(apart(get(a + k), get(b + k))), dg_u(), out + k);
}

// The sums stay below 32768: twelve steps of at most 2047.
[[maybe_unused]] HWY_ATTR void choose_v(const vote_lines& in, std::int32_t first, std::int32_t end, diff* out) {
    const auto step = static_cast<std::int32_t>(hn::Lanes(dg_u()));
    const std::int32_t w = in.c_first ? -1 : 0;
    const auto times_3 = [](vec_u a) HWY_ATTR { return hn::Add(a, hn::Add(a, a)); };
    for (std::int32_t k = first; k < end; k += step) {
        const auto pair = [&](int line)
                              HWY_ATTR { return hn::Add(get(in.step_h[line] + k - 1), get(in.step_h[line] + k)); };
        const auto column = [&](std::int32_t i)
                                HWY_ATTR { return hn::Add(get(in.step_v[0] + i), get(in.step_v[2] + i)); };
        const auto along = as_s(hn::Add(hn::Add(times_3(pair(2)), hn::Add(pair(0), pair(4))),
                                        hn::Add(get(in.step_h[1] + k + w), get(in.step_h[3] + k + w))));
        const auto across = as_s(hn::Add(hn::Add(times_3(column(k)), hn::Add(column(k - 1), column(k + 1))),
                                         hn::Add(get(in.step_v[1] + k + w), get(in.step_v[1] + k + w + 1))));
        const auto h = mean(get(in.h + k), mean(get(in.h + k - 1), get(in.h + k + 1)));
        const auto v = mean(get(in.v[1] + k), mean(get(in.v[0] + k), get(in.v[2] + k)));
        const auto is_h = hn::MaskFromVec(as_u(hn::VecFromMask(dg_s(), hn::Lt(along, across))));
        const auto is_v = hn::MaskFromVec(as_u(hn::VecFromMask(dg_s(), hn::Lt(across, along))));
        hn::StoreU(hn::IfThenElse(is_h, h, hn::IfThenElse(is_v, v, mean(h, v))), dg_u(), out + k);
    }
}

// All ones where differences that are `d` apart say less than samples that are `c` apart.
HWY_INLINE vec_s own_is_smoother_v(vec_u d, vec_s c) {
    const auto limit = hn::SaturatedAdd(as_u(hn::Sub(c, hn::ShiftRight<2>(c))), hn::Set(dg_u(), 1024));
    // d > limit, without sign.
    const auto over = hn::SaturatedSub(d, limit);
    return as_s(hn::VecFromMask(dg_u(), hn::Ne(over, hn::Zero(dg_u()))));
}

HWY_INLINE vec_s pick_v(vec_u d_apart, vec_s c_apart, vec_s green, vec_u d, vec_s direct) {
    const auto by_difference = hn::SaturatedAdd(green, without_bias(d));
    return hn::IfThenElse(hn::MaskFromVec(own_is_smoother_v(d_apart, c_apart)), direct, by_difference);
}

HWY_INLINE vec_s between_v(vec_s green, vec_u d0, vec_u d1, vec_s c0, vec_s c1) {
    return pick_v(apart(d0, d1), apart(c0, c1), green, mean(d0, d1), mean(c0, c1));
}

[[maybe_unused]] HWY_ATTR void colours_v(const mosaic_lines& in, std::int32_t n, const colour_halves& out) {
    const auto step = static_cast<std::int32_t>(hn::Lanes(dg_u()));
    const int at_c = in.c_first ? 0 : 1, at_g = 1 - at_c;
    const std::int32_t w = in.c_first ? 0 : -1;
    s15* const* own = in.red ? out.r : out.b;
    s15* const* other = in.red ? out.b : out.r;
    for (std::int32_t k = 0; k < n; k += step) {
        const auto c = get(in.c + k), g = get(in.g + k);
        const auto green = hn::SaturatedSub(c, without_bias(get(in.own + k)));
        hn::StoreU(c, dg_s(), own[at_c] + k);
        hn::StoreU(green, dg_s(), out.g[at_c] + k);
        hn::StoreU(g, dg_s(), out.g[at_g] + k);
        const std::int32_t l = k - 1 - w, r = k - w;
        const auto d0 = get(in.above + l), d1 = get(in.above + r), d2 = get(in.below + l), d3 = get(in.below + r);
        const auto c0 = get(in.c_above + l), c1 = get(in.c_above + r), c2 = get(in.c_below + l),
                   c3 = get(in.c_below + r);
        const auto d_apart =
            hn::Sub(hn::Max(hn::Max(d0, d1), hn::Max(d2, d3)), hn::Min(hn::Min(d0, d1), hn::Min(d2, d3)));
        const auto c_apart =
            hn::Sub(hn::Max(hn::Max(c0, c1), hn::Max(c2, c3)), hn::Min(hn::Min(c0, c1), hn::Min(c2, c3)));
        const auto diagonal =
            pick_v(d_apart, c_apart, green, mean(mean(d0, d2), mean(d1, d3)), mean(mean(c0, c2), mean(c1, c3)));
        hn::StoreU(diagonal, dg_s(), other[at_c] + k);
        hn::StoreU(between_v(g, get(in.own + k + w), get(in.own + k + w + 1), get(in.c + k + w), get(in.c + k + w + 1)),
                   dg_s(), own[at_g] + k);
        hn::StoreU(between_v(g, get(in.above + k), get(in.below + k), get(in.c_above + k), get(in.c_below + k)), dg_s(),
                   other[at_g] + k);
    }
}

[[maybe_unused]] HWY_ATTR void store_bgr4_v(const colour_halves& c, std::int32_t width, s15 round, std::uint8_t* to) {
    const auto step = static_cast<std::int32_t>(hn::Lanes(dg_u()));
    const auto zero = hn::Zero(dg_s()), bias = hn::Set(dg_s(), round);
    std::int32_t x = 0;
    for (; x + 2 * step <= width; x += 2 * step) {
        const auto byte = [&](const s15* half) HWY_ATTR {
            return as_u(hn::ShiftRight<7>(hn::SaturatedAdd(hn::Max(get(half + x / 2), zero), bias)));
        };
        // Blue and green, red and 255, as words; then pixels of even and of odd columns, then both by turns.
        const auto words = [&](int i, vec_u& bg, vec_u& ra) HWY_ATTR {
            bg = hn::Or(byte(c.b[i]), hn::ShiftLeft<8>(byte(c.g[i])));
            ra = hn::Or(byte(c.r[i]), hn::Set(dg_u(), 0xFF00));
        };
        vec_u bg0, ra0, bg1, ra1;
        words(0, bg0, ra0);
        words(1, bg1, ra1);
        hn::StoreInterleaved4(bg0, ra0, bg1, ra1, dg_u(), reinterpret_cast<std::uint16_t*>(to + 4 * x));
    }
    const colour_halves rest{
        {c.r[0] + x / 2, c.r[1] + x / 2}, {c.g[0] + x / 2, c.g[1] + x / 2}, {c.b[0] + x / 2, c.b[1] + x / 2}};
    store_bgr4(rest, width - x, round, to + 4 * x);
}

[[maybe_unused]] HWY_ATTR void store_bgr3_v(const colour_halves& c, std::int32_t width, s15 round, std::uint8_t* to) {
    const auto step = static_cast<std::int32_t>(hn::Lanes(dg_u()));
    const hn::Repartition<std::uint8_t, dg_u> bytes;
    const auto zero = hn::Zero(dg_s()), bias = hn::Set(dg_s(), round);
    std::int32_t x = 0;
    for (; x + 2 * step <= width; x += 2 * step) {
        const auto byte = [&](const s15* half) HWY_ATTR {
            return as_u(hn::ShiftRight<7>(hn::SaturatedAdd(hn::Max(get(half + x / 2), zero), bias)));
        };
        const auto both = [&](s15* const* half) HWY_ATTR {
            return hn::BitCast(bytes, hn::Or(byte(half[0]), hn::ShiftLeft<8>(byte(half[1]))));
        };
        hn::StoreInterleaved3(both(c.b), both(c.g), both(c.r), bytes, to + 3 * x);
    }
    const colour_halves rest{
        {c.r[0] + x / 2, c.r[1] + x / 2}, {c.g[0] + x / 2, c.g[1] + x / 2}, {c.b[0] + x / 2, c.b[1] + x / 2}};
    store_bgr3(rest, width - x, round, to + 3 * x);
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace img_pipe
HWY_AFTER_NAMESPACE();
