// Bytes through tables of 256, a vector at a time: along the table's curve where it is one, otherwise by looking up.
#pragma once
#include "../byte_curve.h"
#include "correct_rows-inl.h"

HWY_BEFORE_NAMESPACE();
namespace img_pipe {
namespace HWY_NAMESPACE {
namespace {

using words_tag = hn::RepartitionToWide<bytes_tag>;
using vec_words = hn::Vec<words_tag>;

// Words of at most 255 to bytes within each block of 128 bits.
HWY_INLINE vec_bytes pack_words(vec_words low, vec_words high) {
    const hn::RebindToSigned<words_tag> with_sign;
    return pack_bytes(hn::BitCast(with_sign, low), hn::BitCast(with_sign, high));
}

// A curve in registers.
template <int exact_count>
struct curve_vectors {
    vec_bytes base[2], slope[2], above[2]; // of bytes below 128, and of the others
    vec_bytes exact[exact_count + 1], exact_at[exact_count + 1];

    explicit HWY_INLINE curve_vectors(const byte_curve& c) {
        const bytes_tag tag;
        for (int i = 0; i < 2; ++i) {
            base[i] = hn::LoadDup128(tag, c.base + 16 * i);
            slope[i] = hn::LoadDup128(tag, c.slope + 16 * i);
            above[i] = hn::LoadDup128(tag, c.above + 16 * i);
        }
        for (int i = 0; i < exact_count; ++i) {
            exact[i] = hn::LoadDup128(tag, c.exact[i]);
            exact_at[i] = hn::Set(tag, c.exact_at[i]);
        }
    }

    HWY_INLINE vec_bytes operator()(vec_bytes v) const {
        const bytes_tag tag;
        const words_tag wide;
        alignas(16) static constexpr std::uint8_t bits[16] = {1, 2, 4, 8, 16, 32, 64, 128};
        const auto piece =
            hn::And(hn::BitCast(tag, hn::ShiftRight<3>(hn::BitCast(wide, v))), hn::Set(tag, std::uint8_t{31}));
        const auto within = hn::And(v, hn::Set(tag, std::uint8_t{7}));
        auto out = along_piece(look_up_32(base, piece, v), look_up_32(slope, piece, v), within);
        const auto bit = hn::TableLookupBytes(hn::LoadDup128(tag, bits), within);
        const auto one_above = hn::VecFromMask(tag, hn::Eq(hn::And(look_up_32(above, piece, v), bit), bit));
        out = hn::Sub(out, one_above); // of which none is at 255
        for (int i = 0; i < exact_count; ++i)
            out = hn::IfThenElse(hn::Eq(piece, exact_at[i]), hn::TableLookupBytes(exact[i], within), out);
        return out;
    }
};

// Sites of even and odd columns to vectors of their own, and back.
template <class Even, class Odd>
HWY_INLINE void map_two_vectors(const Even& even, const Odd& odd, const std::uint8_t* in, std::uint8_t* out) {
    const bytes_tag tag;
    const words_tag wide;
    constexpr std::int32_t step = HWY_LANES(std::uint8_t);
    const auto low = hn::Set(wide, std::uint16_t{255});
    const auto a = hn::BitCast(wide, hn::LoadU(tag, in)), b = hn::BitCast(wide, hn::LoadU(tag, in + step));
    const auto e = even(pack_words(hn::And(a, low), hn::And(b, low))),
               o = odd(pack_words(hn::ShiftRight<8>(a), hn::ShiftRight<8>(b)));
    hn::StoreU(hn::InterleaveLower(tag, e, o), tag, out);
    hn::StoreU(hn::InterleaveUpper(tag, e, o), tag, out + step);
}

struct unchanged_vectors {
    HWY_INLINE vec_bytes operator()(vec_bytes v) const { return v; }
};

template <class Even, class Odd>
HWY_INLINE std::int32_t map_pairs(const Even& even, const Odd& odd, const std::uint8_t* in, std::int32_t width,
                                  std::uint8_t* out) {
    constexpr std::int32_t step = 2 * HWY_LANES(std::uint8_t);
    std::int32_t x = 0;
    for (; x + step <= width; x += step) map_two_vectors(even, odd, in + x, out + x);
    return x;
}

// Returns how many bytes it has done.
template <int exact_count>
HWY_ATTR std::int32_t map_along_curves(const byte_curve& even, const byte_curve& odd, const std::uint8_t* in,
                                       std::int32_t width, std::uint8_t* out) {
    const bytes_tag tag;
    if (even.unchanged) return map_pairs(unchanged_vectors(), curve_vectors<exact_count>(odd), in, width, out);
    const curve_vectors<exact_count> of_even(even);
    if (odd.unchanged) return map_pairs(of_even, unchanged_vectors(), in, width, out);
    if (&even != &odd) return map_pairs(of_even, curve_vectors<exact_count>(odd), in, width, out);
    constexpr std::int32_t step = HWY_LANES(std::uint8_t);
    std::int32_t x = 0;
    for (; x + step <= width; x += step) hn::StoreU(of_even(hn::LoadU(tag, in + x)), tag, out + x);
    return x;
}

[[maybe_unused]] HWY_ATTR void map_sites_v(const byte_curve& even, const byte_curve& odd, const std::uint8_t* in,
                                           std::int32_t width, std::uint8_t* out) {
    const int exact = even.exact_count > odd.exact_count ? even.exact_count : odd.exact_count;
    if (exact > most_exact) return look_up_sites_v(even.table, odd.table, in, width, out);
    std::int32_t x = 0;
    if (exact == 0)
        x = map_along_curves<0>(even, odd, in, width, out);
    else if (exact == 1)
        x = map_along_curves<1>(even, odd, in, width, out);
    else if (exact == 2)
        x = map_along_curves<2>(even, odd, in, width, out);
    else
        x = map_along_curves<most_exact>(even, odd, in, width, out);
    look_up_sites(even.table, odd.table, in + x, width - x, out + x);
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace img_pipe
HWY_AFTER_NAMESPACE();
