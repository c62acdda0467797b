// Bytes through tables of 256, a vector at a time: along the table's curve where it is one, otherwise by looking up.
#pragma once
#include "../byte_curve.h"
#include "correct_rows-inl.h"

HWY_BEFORE_NAMESPACE();
namespace img_pipe {
namespace HWY_NAMESPACE {
namespace {

using words_tag = hn::RepartitionToWide<bytes_tag>;

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
        const auto bit = hn::TableLookupBytes(hn::LoadDup128(tag, bits), within);
        const auto lifted = hn::VecFromMask(tag, hn::Eq(hn::And(look_up_32(above, piece, v), bit), bit));
        auto out = hn::SaturatedAdd(hn::Sub(look_up_32(base, piece, v), lifted),
                                    rise_within(look_up_32(slope, piece, v), within));
        for (int i = 0; i < exact_count; ++i)
            out = hn::IfThenElse(hn::Eq(piece, exact_at[i]), hn::TableLookupBytes(exact[i], within), out);
        return out;
    }
};

// Two vectors of bytes as those of even and those of odd columns, of both by turns, and back.
struct column_vectors {
    vec_bytes even, odd;
};
HWY_INLINE vec_bytes a_byte_up(vec_bytes v) {
    return hn::BitCast(bytes_tag(), hn::ShiftLeft<8>(hn::BitCast(words_tag(), v)));
}
HWY_INLINE vec_bytes a_byte_down(vec_bytes v) {
    return hn::BitCast(bytes_tag(), hn::ShiftRight<8>(hn::BitCast(words_tag(), v)));
}
HWY_INLINE column_vectors load_columns(const std::uint8_t* in) {
    const auto a = hn::LoadU(bytes_tag(), in), b = hn::LoadU(bytes_tag(), in + HWY_LANES(std::uint8_t));
    return {hn::OddEven(a_byte_up(b), a), hn::OddEven(b, a_byte_down(a))};
}
HWY_INLINE void store_columns(column_vectors v, std::uint8_t* out) {
    hn::StoreU(hn::OddEven(a_byte_up(v.odd), v.even), bytes_tag(), out);
    hn::StoreU(hn::OddEven(v.odd, a_byte_down(v.even)), bytes_tag(), out + HWY_LANES(std::uint8_t));
}

struct unchanged_vectors {
    HWY_INLINE vec_bytes operator()(vec_bytes v) const { return v; }
};

// Returns how many bytes it has done: all, or all but one. The last vectors lie over those before them where they must,
// and are read before those are written.
template <class Even, class Odd>
HWY_INLINE std::int32_t map_pairs(const Even& even, const Odd& odd, const std::uint8_t* in, std::int32_t width,
                                  std::uint8_t* out) {
    constexpr std::int32_t step = 2 * HWY_LANES(std::uint8_t);
    if (width < step) return 0;
    const std::int32_t last = (width - step) & ~1;
    auto next = load_columns(in);
    for (std::int32_t x = 0; x < last; x += step) {
        const auto own = next;
        next = load_columns(in + (x + step < last ? x + step : last));
        store_columns({even(own.even), odd(own.odd)}, out + x);
    }
    store_columns({even(next.even), odd(next.odd)}, out + last);
    return last + step;
}

// Returns how many bytes it has done.
template <int exact_count>
HWY_ATTR std::int32_t map_along_curves(const byte_curve& even, const byte_curve& odd, const std::uint8_t* in,
                                       std::int32_t width, std::uint8_t* out) {
    if (even.unchanged) return map_pairs(unchanged_vectors(), curve_vectors<exact_count>(odd), in, width, out);
    const curve_vectors<exact_count> of_even(even);
    if (odd.unchanged) return map_pairs(of_even, unchanged_vectors(), in, width, out);
    if (&even != &odd) return map_pairs(of_even, curve_vectors<exact_count>(odd), in, width, out);
    const bytes_tag tag;
    constexpr std::int32_t step = HWY_LANES(std::uint8_t);
    if (width < step) return 0;
    const std::int32_t last = width - step;
    auto next = hn::LoadU(tag, in);
    for (std::int32_t x = 0; x < last; x += step) {
        const auto own = next;
        next = hn::LoadU(tag, in + (x + step < last ? x + step : last));
        hn::StoreU(of_even(own), tag, out + x);
    }
    hn::StoreU(of_even(next), tag, out + last);
    return width;
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
