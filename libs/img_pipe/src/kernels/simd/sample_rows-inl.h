// Lines of samples in and out of the 16-bit line form of rows.h, a vector at a time; the rest sample by sample.
// Include after <hwy/highway.h>, outside any namespace. All functions have internal linkage.
#pragma once
#include "../plain/sample_rows.h"

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace img_pipe {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using d8_128 = hn::Full128<std::uint8_t>;
using d16_128 = hn::Full128<std::uint16_t>;
// The vectors of the level's own width, but no wider than 256 bits: these steps take two 128-bit loads at most.
using d8 = hn::ScalableTag<std::uint8_t>;
using d16 = hn::ScalableTag<std::uint16_t>;
using d32 = hn::ScalableTag<std::uint32_t>;
using d64 = hn::ScalableTag<std::uint64_t>;

// Eight samples from the 16 bytes at p: two bytes are shuffled into each word w, then
// sample = (w & high) | (w * factor & low), its bits at the top.
struct unpack_table {
    std::uint8_t shuffle[16];
    std::uint16_t factor[8];
    std::uint16_t high, low;
};

template <packing pack>
struct packed;
template <>
struct packed<packing::p12> {
    static constexpr std::int32_t bytes = 12; // that eight samples take
    alignas(16) static constexpr unpack_table table{
        {0, 1, 1, 2, 3, 4, 4, 5, 6, 7, 7, 8, 9, 10, 10, 11}, {16, 1, 16, 1, 16, 1, 16, 1}, 0, 0xFFF0};
};
template <>
struct packed<packing::packed12> {
    static constexpr std::int32_t bytes = 12;
    alignas(16) static constexpr unpack_table table{
        {1, 0, 1, 2, 4, 3, 4, 5, 7, 6, 7, 8, 10, 9, 10, 11}, {16, 1, 16, 1, 16, 1, 16, 1}, 0xFF00, 0x00F0};
};
template <>
struct packed<packing::mipi12> {
    static constexpr std::int32_t bytes = 12;
    alignas(16) static constexpr unpack_table table{
        {2, 0, 2, 1, 5, 3, 5, 4, 8, 6, 8, 7, 11, 9, 11, 10}, {16, 1, 16, 1, 16, 1, 16, 1}, 0xFF00, 0x00F0};
};
template <>
struct packed<packing::p10> {
    static constexpr std::int32_t bytes = 10;
    alignas(16) static constexpr unpack_table table{
        {0, 1, 1, 2, 2, 3, 3, 4, 5, 6, 6, 7, 7, 8, 8, 9}, {64, 16, 4, 1, 64, 16, 4, 1}, 0, 0xFFC0};
};
template <>
struct packed<packing::mipi10> {
    static constexpr std::int32_t bytes = 10;
    alignas(16) static constexpr unpack_table table{
        {4, 0, 4, 1, 4, 2, 4, 3, 9, 5, 9, 6, 9, 7, 9, 8}, {64, 16, 4, 1, 64, 16, 4, 1}, 0xFF00, 0x00C0};
};

// Calls f with the packing as a type; for packed samples alone.
template <class F>
HWY_INLINE void with_packing(packing pack, const F& f) {
    switch (pack) {
    case packing::p10:
        return f(packed<packing::p10>{});
    case packing::mipi10:
        return f(packed<packing::mipi10>{});
    case packing::p12:
        return f(packed<packing::p12>{});
    case packing::packed12:
        return f(packed<packing::packed12>{});
    case packing::mipi12:
        return f(packed<packing::mipi12>{});
    default:
        return;
    }
}

HWY_INLINE hn::Vec<d8> load_groups(const std::uint8_t* p, std::size_t step) {
#if HWY_TARGET == HWY_AVX2
    return hn::Combine(d8(), hn::LoadU(d8_128(), p + step), hn::LoadU(d8_128(), p));
#else
    (void)step;
    return hn::LoadU(d8(), p);
#endif
}

HWY_INLINE void store_groups(hn::Vec<d8> v, std::uint8_t* p, std::size_t step) {
#if HWY_TARGET == HWY_AVX2
    hn::StoreU(hn::LowerHalf(v), d8_128(), p);
    hn::StoreU(hn::UpperHalf(d8_128(), v), d8_128(), p + step);
#else
    (void)step;
    hn::StoreU(v, d8(), p);
#endif
}

// A vector of samples, and how far a load or a store of one reaches: further than its own samples.
constexpr std::int32_t vector_samples = HWY_LANES(std::uint16_t);
template <packing pack>
constexpr std::ptrdiff_t packed_reach = (vector_samples / 8 - 1) * packed<pack>::bytes + 16;

template <packing pack>
HWY_INLINE hn::Vec<d16> load_packed(packed<pack>, const std::uint8_t* p) {
    const d16 tag;
    constexpr const unpack_table& t = packed<pack>::table;
    const auto w =
        hn::BitCast(tag, hn::TableLookupBytes(load_groups(p, packed<pack>::bytes), hn::LoadDup128(d8(), t.shuffle)));
    const auto low = hn::And(hn::Mul(w, hn::LoadDup128(tag, t.factor)), hn::Set(tag, t.low));
    if constexpr (t.high == 0)
        return low;
    else
        return hn::Or(hn::And(w, hn::Set(tag, t.high)), low);
}

template <packing pack>
HWY_INLINE void store_packed(packed<pack>, hn::Vec<d16> samples, std::uint8_t* p) {
    if constexpr (packed<pack>::bytes == 12) {
        alignas(16) static constexpr std::uint8_t three_of_four[16] = {0,  1,  2,  4,  5,    6,    8,    9,
                                                                       10, 12, 13, 14, 0x80, 0x80, 0x80, 0x80};
        const d32 wide;
        const auto v = hn::BitCast(wide, samples); // a in the low, b in the high half
        auto t = v;
        if constexpr (pack == packing::p12) {
            t = hn::Or(hn::ShiftRight<4>(hn::And(v, hn::Set(wide, 0xFFF0U))), hn::ShiftLeft<12>(hn::ShiftRight<20>(v)));
        } else {
            const auto a = hn::And(hn::ShiftRight<8>(v), hn::Set(wide, 0xFFU)), b = hn::ShiftRight<24>(v);
            const auto low = hn::Or(hn::And(hn::ShiftRight<4>(v), hn::Set(wide, 0x0FU)),
                                    hn::And(hn::ShiftRight<16>(v), hn::Set(wide, 0xF0U)));
            if constexpr (pack == packing::packed12)
                t = hn::Or(a, hn::Or(hn::ShiftLeft<8>(low), hn::ShiftLeft<16>(b)));
            else
                t = hn::Or(a, hn::Or(hn::ShiftLeft<8>(b), hn::ShiftLeft<16>(low)));
        }
        store_groups(hn::TableLookupBytes(hn::BitCast(d8(), t), hn::LoadDup128(d8(), three_of_four)), p, 12);
    } else {
        alignas(16) static constexpr std::uint8_t five_of_eight[16] = {0,  1,  2,    3,    4,    8,    9,    10,
                                                                       11, 12, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80};
        const d64 wide;
        const auto v = hn::BitCast(wide, samples);
        // Sample i stands in bits 16 i on, its ten bits from 16 i + 6.
        const auto part = [&](std::uint64_t mask) HWY_ATTR { return hn::And(v, hn::Set(wide, mask)); };
        auto t = v;
        if constexpr (pack == packing::p10) {
            t = hn::Or(hn::Or(hn::ShiftRight<6>(part(0xFFC0ULL)), hn::ShiftRight<12>(part(0xFFC0ULL << 16))),
                       hn::Or(hn::ShiftRight<18>(part(0xFFC0ULL << 32)), hn::ShiftRight<24>(part(0xFFC0ULL << 48))));
        } else {
            const auto high =
                hn::Or(hn::Or(hn::ShiftRight<8>(part(0xFF00ULL)), hn::ShiftRight<16>(part(0xFF00ULL << 16))),
                       hn::Or(hn::ShiftRight<24>(part(0xFF00ULL << 32)), hn::ShiftRight<32>(part(0xFF00ULL << 48))));
            const auto low =
                hn::Or(hn::Or(hn::ShiftRight<6>(part(0xC0ULL)), hn::ShiftRight<20>(part(0xC0ULL << 16))),
                       hn::Or(hn::ShiftRight<34>(part(0xC0ULL << 32)), hn::ShiftRight<48>(part(0xC0ULL << 48))));
            t = hn::Or(high, hn::ShiftLeft<32>(low));
        }
        store_groups(hn::TableLookupBytes(hn::BitCast(d8(), t), hn::LoadDup128(d8(), five_of_eight)), p, 10);
    }
}

// As the plain load_line; reads nothing from `end` on.
[[maybe_unused]] HWY_ATTR void load_line_v(sample_layout layout, const std::uint8_t* p, const std::uint8_t* end,
                                           std::int32_t width, std::uint16_t* line) {
    const d16 tag;
    constexpr std::int32_t n = vector_samples;
    std::int32_t x = 0;
    const std::ptrdiff_t have = end - p;
    if (layout.pack == packing::plain8) {
        const hn::Rebind<std::uint8_t, d16> half;
        for (; x + n <= width && x + n <= have; x += n) {
            const auto v = hn::PromoteTo(tag, hn::LoadU(half, p + x));
            hn::StoreU(hn::Or(v, hn::ShiftLeft<8>(v)), tag, line + x);
        }
    } else if (layout.pack == packing::plain16) {
        const int shift = layout.shift;
        for (; x + n <= width && 2 * (x + n) <= have; x += n) {
            const auto v = hn::BitCast(tag, hn::LoadU(d8(), p + 2 * x));
            hn::StoreU(hn::ShiftLeftSame(v, shift), tag, line + x);
        }
    } else if (layout.pack == packing::real) {
        const hn::ScalableTag<float> df;
        const hn::Rebind<std::uint16_t, decltype(df)> du;
        const auto lanes = static_cast<std::int32_t>(hn::Lanes(df));
        const auto zero = hn::Zero(df), most = hn::Set(df, 65535.0F);
        for (; x + lanes <= width && 4 * (x + lanes) <= have; x += lanes) {
            const auto v = hn::BitCast(df, hn::LoadU(d8(), p + 4 * x));
            const auto scaled = hn::Min(hn::Max(hn::Mul(v, most), zero), most); // no number counts as 0
            hn::StoreU(hn::DemoteTo(du, hn::NearestInt(scaled)), du, line + x);
        }
    } else {
        with_packing(layout.pack, [&]<packing pack>(packed<pack> of) HWY_ATTR {
            constexpr std::ptrdiff_t step = of.bytes * (n / 8);
            for (std::ptrdiff_t at = 0; x + n <= width && at + packed_reach<pack> <= have; x += n, at += step)
                hn::StoreU(load_packed(of, p + at), tag, line + x);
        });
    }
    for (; x < width; ++x) line[x] = load_sample(layout, p, end, static_cast<std::size_t>(x));
}

// As the plain store_line; writes nothing from `end` on, and within the line only ahead of what it writes next.
[[maybe_unused]] HWY_ATTR void store_line_v(sample_layout layout, std::uint8_t* p, const std::uint8_t* end,
                                            std::int32_t width, const std::uint16_t* line) {
    const d16 tag;
    constexpr std::int32_t n = vector_samples;
    std::int32_t x = 0;
    const std::ptrdiff_t have = end - p;
    if (layout.pack == packing::plain8) {
        const auto bytes = [&](std::int32_t at) HWY_ATTR { return hn::BitCast(d8(), hn::LoadU(tag, line + at)); };
        for (; x + 2 * n <= width && x + 2 * n <= have; x += 2 * n)
            hn::StoreU(hn::ConcatOdd(d8(), bytes(x + n), bytes(x)), d8(), p + x);
    } else if (layout.pack == packing::plain16) {
        const int shift = layout.shift;
        for (; x + n <= width && 2 * (x + n) <= have; x += n)
            hn::StoreU(hn::BitCast(d8(), hn::ShiftRightSame(hn::LoadU(tag, line + x), shift)), d8(), p + 2 * x);
    } else {
        with_packing(layout.pack, [&]<packing pack>(packed<pack> of) HWY_ATTR {
            constexpr std::ptrdiff_t step = of.bytes * (n / 8);
            const std::ptrdiff_t room = std::ptrdiff_t{width} * of.bytes / 8;
            // Stop short of the last bytes of the line: a store reaches past its own samples, and what it spoils there
            // the next one must mend.
            for (std::ptrdiff_t at = 0;
                 x + n <= width && at + packed_reach<pack> <= room && at + packed_reach<pack> <= have;
                 x += n, at += step)
                store_packed(of, hn::LoadU(tag, line + x), p + at);
        });
    }
    for (; x < width; ++x) store_sample(layout, p, end, static_cast<std::size_t>(x), line[x]);
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace img_pipe
HWY_AFTER_NAMESPACE();
