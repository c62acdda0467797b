// Steps of colour lines, a vector at a time; the rest of a line by the plain steps, whose arithmetic these follow.
// Include after <hwy/highway.h>, outside any namespace. All functions have internal linkage.
#pragma once
#include "../plain/colour_rows.h"
#include "correct_rows-inl.h"
#include "level_ops-inl.h"
#include "sample_rows-inl.h"

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace img_pipe {
namespace HWY_NAMESPACE {
namespace {

using d16i = hn::ScalableTag<std::int16_t>;
using d32i = hn::ScalableTag<std::int32_t>;
using v8 = hn::Vec<d8>;
using v16i = hn::Vec<d16i>;
constexpr std::int32_t lanes8 = HWY_LANES(std::uint8_t), lanes16 = HWY_LANES(std::uint16_t);

// Bytes as the low halves of 16-bit lanes, in two vectors whose order pack_bytes restores.
HWY_INLINE v16i lower_half(v8 v) { return hn::BitCast(d16i(), hn::InterleaveLower(d8(), v, hn::Zero(d8()))); }
HWY_INLINE v16i upper_half(v8 v) { return hn::BitCast(d16i(), hn::InterleaveUpper(d8(), v, hn::Zero(d8()))); }
// As the high halves: the value times 256.
HWY_INLINE v16i lower_high(v8 v) { return hn::BitCast(d16i(), hn::InterleaveLower(d8(), hn::Zero(d8()), v)); }
HWY_INLINE v16i upper_high(v8 v) { return hn::BitCast(d16i(), hn::InterleaveUpper(d8(), hn::Zero(d8()), v)); }

// Both 16-bit factors of the pair (b, g) or (r, 1).
HWY_INLINE v16i factors(std::int32_t low, std::int32_t high) {
    return hn::BitCast(
        d16i(), hn::Set(d32i(), (low & 0xFFFF) | static_cast<std::int32_t>(static_cast<std::uint32_t>(high) << 16)));
}

struct weights {
    v16i bg, r1; // the last with the rounding
};
HWY_INLINE weights weigh(std::int32_t b, std::int32_t g, std::int32_t r) { return {factors(b, g), factors(r, 8192)}; }

// (b * wb + g * wg + r * wr + 8192) >> 14 of one half.
HWY_INLINE v16i weighted(const weights& w, v16i b, v16i g, v16i r) {
    const auto one = hn::Set(d16i(), std::int16_t{1});
    const auto low = hn::Add(pair_sums(hn::InterleaveLower(d16i(), b, g), w.bg),
                             pair_sums(hn::InterleaveLower(d16i(), r, one), w.r1));
    const auto high = hn::Add(pair_sums(hn::InterleaveUpper(d16i(), b, g), w.bg),
                              pair_sums(hn::InterleaveUpper(d16i(), r, one), w.r1));
    return hn::ReorderDemote2To(d16i(), hn::ShiftRight<14>(low), hn::ShiftRight<14>(high));
}

HWY_ATTR void unpack_422(const yuv_group& g, const std::uint8_t* p, std::int32_t have, std::int32_t n, three8 out,
                         std::int32_t& x) {
    const d16 wide;
    const bool luma_first = g.y[0] == 0;
    const auto low = hn::Set(wide, std::uint16_t{0x00FF}), high = hn::Set(wide, std::uint16_t{0xFF00});
    for (; x + lanes8 <= n && 2 * (x + lanes8) <= have; x += lanes8) {
        const auto a = hn::LoadU(d8(), p + 2 * x), b = hn::LoadU(d8(), p + 2 * x + lanes8);
        const auto even = hn::ConcatEven(d8(), b, a), odd = hn::ConcatOdd(d8(), b, a);
        const auto c = hn::BitCast(wide, luma_first ? odd : even);
        const auto u = hn::And(c, low), v = hn::And(c, high);
        hn::StoreU(luma_first ? even : odd, d8(), out.line[0] + x);
        hn::StoreU(hn::BitCast(d8(), hn::Or(u, hn::ShiftLeft<8>(u))), d8(), out.line[1] + x);
        hn::StoreU(hn::BitCast(d8(), hn::Or(v, hn::ShiftRight<8>(v))), d8(), out.line[2] + x);
    }
}

// Where the samples of 16 pixels of four-pixel groups lie in two loads of 16 bytes, 12 bytes apart.
struct shuffles_411 {
    alignas(16) std::uint8_t from[3][2][16];   // Y, U, V; of the first and second load
    alignas(16) std::uint8_t luma_to[2][16];   // luma of the first eight pixels, of the last eight
    alignas(16) std::uint8_t chroma_to[2][16]; // of lanes V << 8 | U of the four groups
};
constexpr shuffles_411 shuffles_of(yuv_group g) {
    shuffles_411 s{};
    for (int half = 0; half < 2; ++half)
        for (int i = 0; i < 16; ++i) {
            s.from[0][half][i] = s.from[1][half][i] = s.from[2][half][i] = 0x80;
            s.luma_to[half][i] = s.chroma_to[half][i] = 0x80;
        }
    const auto byte = [](int v) { return static_cast<std::uint8_t>(v); };
    for (int x = 0; x < 16; ++x) {
        const int half = x / 8, group = x % 8 / 4 * 6;
        s.from[0][half][x] = byte(group + g.y[x % 4]);
        s.from[1][half][x] = byte(group + g.u);
        s.from[2][half][x] = byte(group + g.v);
        s.luma_to[half][group + g.y[x % 4]] = byte(x);
        s.chroma_to[half][group + g.u] = byte(x / 4 * 4);
        s.chroma_to[half][group + g.v] = byte(x / 4 * 4 + 1);
    }
    return s;
}
constexpr shuffles_411 chroma_first = shuffles_of({4, 6, {1, 2, 4, 5}, 0, 3});
constexpr shuffles_411 luma_first_411 = shuffles_of({4, 6, {0, 1, 3, 4}, 2, 5});

HWY_ATTR void unpack_411(const yuv_group& g, const std::uint8_t* p, std::int32_t have, std::int32_t n, three8 out,
                         std::int32_t& x) {
    const d8_128 tag;
    const shuffles_411& s = g.u == 0 ? chroma_first : luma_first_411;
    for (std::int32_t at = 0; x + 16 <= n && at + 28 <= have; x += 16, at += 24) {
        const auto a = hn::LoadU(tag, p + at), b = hn::LoadU(tag, p + at + 12);
        for (int i = 0; i < 3; ++i)
            hn::StoreU(hn::Or(hn::TableLookupBytesOr0(a, hn::Load(tag, s.from[i][0])),
                              hn::TableLookupBytesOr0(b, hn::Load(tag, s.from[i][1]))),
                       tag, out.line[i] + x);
    }
}

[[maybe_unused]] HWY_ATTR void unpack_yuv_v(const yuv_group& g, const std::uint8_t* p, std::int32_t have,
                                            std::int32_t x, std::int32_t n, three8 out) {
    if (g.pixels == 2) unpack_422(g, p, have, n, out, x);
    if (g.pixels == 4) unpack_411(g, p, have, n, out, x);
    unpack_yuv(g, p, have, x, n, out);
}

HWY_ATTR void pack_422(const yuv_group& g, in8 in, std::int32_t n, std::uint8_t* p, std::int32_t have,
                       std::int32_t& x) {
    const d16 wide;
    const auto low = hn::Set(wide, std::uint16_t{0x00FF});
    const auto mean = [&](const std::uint8_t* line) HWY_ATTR {
        const auto v = hn::BitCast(wide, hn::LoadU(d8(), line));
        return hn::AverageRound(hn::And(v, low), hn::ShiftRight<8>(v));
    };
    for (; x + lanes8 <= n && 2 * (x + lanes8) <= have; x += lanes8) {
        const auto y = hn::LoadU(d8(), in.line[0] + x);
        const auto c = hn::BitCast(d8(), hn::Or(mean(in.line[1] + x), hn::ShiftLeft<8>(mean(in.line[2] + x))));
        if (g.y[0] == 0)
            hn::StoreInterleaved2(y, c, d8(), p + 2 * x);
        else
            hn::StoreInterleaved2(c, y, d8(), p + 2 * x);
    }
}

HWY_ATTR void pack_411(const yuv_group& g, in8 in, std::int32_t n, std::uint8_t* p, std::int32_t have,
                       std::int32_t& x) {
    const d8_128 tag;
    const hn::Full128<std::uint32_t> four;
    const shuffles_411& s = g.u == 0 ? chroma_first : luma_first_411;
    const auto mean = [&](const std::uint8_t* line) HWY_ATTR {
        const auto v = hn::BitCast(four, hn::LoadU(tag, line));
        const auto even = hn::Set(four, 0x00FF00FFU);
        const auto pairs = hn::Add(hn::And(v, even), hn::And(hn::ShiftRight<8>(v), even));
        const auto sum = hn::Add(hn::And(pairs, hn::Set(four, 0xFFFFU)), hn::ShiftRight<16>(pairs));
        return hn::ShiftRight<2>(hn::Add(sum, hn::Set(four, 2U)));
    };
    // The second store reaches four bytes past its own; the next mends them.
    for (std::int32_t at = 0; x + 16 <= n && at + 28 <= have && at + 28 <= n / 4 * 6; x += 16, at += 24) {
        const auto y = hn::LoadU(tag, in.line[0] + x);
        const auto c = hn::BitCast(tag, hn::Or(mean(in.line[1] + x), hn::ShiftLeft<8>(mean(in.line[2] + x))));
        for (int half = 0; half < 2; ++half)
            hn::StoreU(hn::Or(hn::TableLookupBytesOr0(y, hn::Load(tag, s.luma_to[half])),
                              hn::TableLookupBytesOr0(c, hn::Load(tag, s.chroma_to[half]))),
                       tag, p + at + 12 * half);
    }
}

[[maybe_unused]] HWY_ATTR void pack_yuv_v(const yuv_group& g, in8 in, std::int32_t x, std::int32_t n, std::uint8_t* p,
                                          std::int32_t have) {
    if (g.pixels == 2) pack_422(g, in, n, p, have, x);
    if (g.pixels == 4) pack_411(g, in, n, p, have, x);
    pack_yuv(g, in, x, n, p, have);
}

[[maybe_unused]] HWY_ATTR void split_bgr_v(std::int32_t channels, const std::uint8_t* p, std::int32_t x, std::int32_t n,
                                           three8 out) {
    for (; x + lanes8 <= n; x += lanes8) {
        v8 b, g, r, a;
        if (channels == 4)
            hn::LoadInterleaved4(d8(), p + 4 * x, b, g, r, a);
        else
            hn::LoadInterleaved3(d8(), p + 3 * x, b, g, r);
        hn::StoreU(b, d8(), out.line[0] + x);
        hn::StoreU(g, d8(), out.line[1] + x);
        hn::StoreU(r, d8(), out.line[2] + x);
    }
    split_bgr(channels, p, x, n, out);
}

[[maybe_unused]] HWY_ATTR void join_bgr_v(std::int32_t channels, in8 in, std::int32_t x, std::int32_t n,
                                          std::uint8_t* p) {
    const auto opaque = hn::Set(d8(), std::uint8_t{255});
    for (; x + lanes8 <= n; x += lanes8) {
        const auto b = hn::LoadU(d8(), in.line[0] + x), g = hn::LoadU(d8(), in.line[1] + x),
                   r = hn::LoadU(d8(), in.line[2] + x);
        if (channels == 4)
            hn::StoreInterleaved4(b, g, r, opaque, d8(), p + 4 * x);
        else
            hn::StoreInterleaved3(b, g, r, d8(), p + 3 * x);
    }
    join_bgr(channels, in, x, n, p);
}

[[maybe_unused]] HWY_ATTR void split_bgr16_v(const std::uint8_t* p, std::int32_t x, std::int32_t n, three16 out) {
    for (; x + lanes16 <= n; x += lanes16) {
        hn::Vec<d16> b, g, r, a;
        hn::LoadInterleaved4(d16(), reinterpret_cast<const std::uint16_t*>(p + 8 * x), b, g, r, a);
        hn::StoreU(b, d16(), out.line[0] + x);
        hn::StoreU(g, d16(), out.line[1] + x);
        hn::StoreU(r, d16(), out.line[2] + x);
    }
    split_bgr16(p, x, n, out);
}

[[maybe_unused]] HWY_ATTR void join_bgr16_v(in16 in, std::int32_t x, std::int32_t n, std::uint8_t* p) {
    const auto opaque = hn::Set(d16(), std::uint16_t{65535});
    for (; x + lanes16 <= n; x += lanes16)
        hn::StoreInterleaved4(hn::LoadU(d16(), in.line[0] + x), hn::LoadU(d16(), in.line[1] + x),
                              hn::LoadU(d16(), in.line[2] + x), opaque, d16(),
                              reinterpret_cast<std::uint16_t*>(p + 8 * x));
    join_bgr16(in, x, n, p);
}

[[maybe_unused]] HWY_ATTR void yuv_to_bgr_v(in8 in, std::int32_t x, std::int32_t n, three8 out) {
    const d16i tag;
    const auto set = [&](std::int32_t v) HWY_ATTR { return hn::Set(tag, static_cast<std::int16_t>(v)); };
    const auto bu = set(b_of_u), gu = set(g_of_u), gv = set(g_of_v), rv = set(r_of_v), half = set(32);
    const auto middle = hn::Set(d8(), std::uint8_t{128});
    for (; x + lanes8 <= n; x += lanes8) {
        const auto y8 = hn::LoadU(d8(), in.line[0] + x);
        const auto u8 = hn::Xor(hn::LoadU(d8(), in.line[1] + x), middle);
        const auto v8_ = hn::Xor(hn::LoadU(d8(), in.line[2] + x), middle);
        v16i b[2], g[2], r[2];
        for (int i = 0; i < 2; ++i) {
            const auto high = [&](v8 v) HWY_ATTR { return i == 0 ? lower_high(v) : upper_high(v); };
            const auto y = hn::Add(hn::BitCast(tag, hn::ShiftRight<2>(hn::BitCast(d16(), high(y8)))), half);
            const auto u = high(u8), v = high(v8_);
            b[i] = hn::ShiftRight<6>(hn::Add(y, hn::MulFixedPoint15(u, bu)));
            g[i] = hn::ShiftRight<6>(hn::Sub(hn::Sub(y, hn::MulFixedPoint15(u, gu)), hn::MulFixedPoint15(v, gv)));
            r[i] = hn::ShiftRight<6>(hn::Add(y, hn::MulFixedPoint15(v, rv)));
        }
        hn::StoreU(pack_bytes(b[0], b[1]), d8(), out.line[0] + x);
        hn::StoreU(pack_bytes(g[0], g[1]), d8(), out.line[1] + x);
        hn::StoreU(pack_bytes(r[0], r[1]), d8(), out.line[2] + x);
    }
    yuv_to_bgr(in, x, n, out);
}

[[maybe_unused]] HWY_ATTR void bgr_to_luma_v(in8 in, std::int32_t x, std::int32_t n, std::uint8_t* out) {
    const weights w = weigh(luma_b, luma_g, luma_r);
    for (; x + lanes8 <= n; x += lanes8) {
        const auto b = hn::LoadU(d8(), in.line[0] + x), g = hn::LoadU(d8(), in.line[1] + x),
                   r = hn::LoadU(d8(), in.line[2] + x);
        hn::StoreU(pack_bytes(weighted(w, lower_half(b), lower_half(g), lower_half(r)),
                              weighted(w, upper_half(b), upper_half(g), upper_half(r))),
                   d8(), out + x);
    }
    bgr_to_luma(in, x, n, out);
}

[[maybe_unused]] HWY_ATTR void bgr_to_yuv_v(in8 in, std::int32_t x, std::int32_t n, three8 out) {
    const weights w[3] = {weigh(luma_b, luma_g, luma_r), weigh(u_b, u_g, u_r), weigh(v_b, v_g, v_r)};
    const auto middle = hn::Set(d16i(), std::int16_t{128}), none = hn::Zero(d16i());
    for (; x + lanes8 <= n; x += lanes8) {
        const auto b = hn::LoadU(d8(), in.line[0] + x), g = hn::LoadU(d8(), in.line[1] + x),
                   r = hn::LoadU(d8(), in.line[2] + x);
        const v16i lb = lower_half(b), lg = lower_half(g), lr = lower_half(r);
        const v16i ub = upper_half(b), ug = upper_half(g), ur = upper_half(r);
        for (int i = 0; i < 3; ++i) {
            const auto shift = i == 0 ? none : middle;
            hn::StoreU(
                pack_bytes(hn::Add(weighted(w[i], lb, lg, lr), shift), hn::Add(weighted(w[i], ub, ug, ur), shift)),
                d8(), out.line[i] + x);
        }
    }
    bgr_to_yuv(in, x, n, out);
}

[[maybe_unused]] HWY_ATTR void bgr16_to_luma_v(in16 in, std::int32_t x, std::int32_t n, std::uint16_t* out) {
    const d32i tag;
    const hn::Rebind<std::uint16_t, d32i> narrow_tag;
    constexpr std::int32_t step = lanes16 / 2;
    const auto part = [&](int i, std::int32_t at, std::int32_t weight) HWY_ATTR {
        return hn::Mul(hn::PromoteTo(tag, hn::LoadU(narrow_tag, in.line[i] + at)), hn::Set(tag, weight));
    };
    for (; x + step <= n; x += step) {
        const auto sum =
            hn::Add(hn::Add(part(0, x, luma_b), part(1, x, luma_g)), hn::Add(part(2, x, luma_r), hn::Set(tag, 8192)));
        hn::StoreU(hn::DemoteTo(narrow_tag, hn::ShiftRight<14>(sum)), narrow_tag, out + x);
    }
    bgr16_to_luma(in, x, n, out);
}

[[maybe_unused]] HWY_ATTR void narrow_v(const std::uint8_t* in, std::int32_t x, std::int32_t n, std::uint8_t* out) {
    for (; x + lanes8 <= n; x += lanes8)
        hn::StoreU(hn::ConcatOdd(d8(), hn::LoadU(d8(), in + 2 * x + lanes8), hn::LoadU(d8(), in + 2 * x)), d8(),
                   out + x);
    narrow(in, x, n, out);
}

[[maybe_unused]] HWY_ATTR void widen_v(const std::uint8_t* in, std::int32_t x, std::int32_t n, std::uint8_t* out) {
    for (; x + lanes8 <= n; x += lanes8) {
        const auto v = hn::LoadU(d8(), in + x);
        hn::StoreInterleaved2(v, v, d8(), out + 2 * x);
    }
    widen(in, x, n, out);
}

template <class T>
HWY_ATTR void pick_sites_v(const T* even, const T* odd, std::int32_t x, std::int32_t n, T* out) {
    const hn::ScalableTag<T> tag;
    constexpr std::int32_t lanes = HWY_LANES(T);
    for (; x + lanes <= n; x += lanes)
        hn::StoreU(hn::OddEven(hn::LoadU(tag, odd + x), hn::LoadU(tag, even + x)), tag, out + x);
    pick_sites(even, odd, x, n, out);
}

[[maybe_unused]] HWY_ATTR void halve_v(const std::uint8_t* upper, const std::uint8_t* lower, std::int32_t x,
                                       std::int32_t n, std::uint8_t* out) {
    const d16 wide;
    const auto low = hn::Set(wide, std::uint16_t{0x00FF}), two = hn::Set(wide, std::uint16_t{2});
    const auto pairs = [&](const std::uint8_t* p) HWY_ATTR {
        const auto v = hn::BitCast(wide, hn::LoadU(d8(), p));
        return hn::Add(hn::And(v, low), hn::ShiftRight<8>(v));
    };
    const auto means = [&](std::int32_t at) HWY_ATTR {
        const auto sum = hn::Add(hn::Add(pairs(upper + at), pairs(lower + at)), two);
        return hn::BitCast(d8(), hn::ShiftRight<2>(sum));
    };
    for (; x + lanes8 <= n; x += lanes8)
        hn::StoreU(hn::ConcatEven(d8(), means(2 * x + lanes8), means(2 * x)), d8(), out + x);
    halve(upper, lower, x, n, out);
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace img_pipe
HWY_AFTER_NAMESPACE();
