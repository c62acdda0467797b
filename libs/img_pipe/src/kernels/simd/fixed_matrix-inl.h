// The colour matrix in fixed point and gamma to bytes, on a vector of each colour: bit-equal to the plain steps.
#pragma once
#include "../plain/colour_out_rows.h"
#include "split_rows-inl.h"

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace img_pipe {
namespace HWY_NAMESPACE {
namespace {

template <class T>
class matrix_vectors;

template <>
class matrix_vectors<std::uint8_t> {
public:
    explicit HWY_INLINE matrix_vectors(const fixed_matrix<std::uint8_t>& f) : bits(f.bits) {
        for (int i = 0; i < 3; ++i) {
            for (int j = 0; j < 3; ++j) m[i][j] = hn::Set(d16i(), f.m[i][j]);
            add[i] = hn::Set(d16i(), f.add[i]);
        }
    }
    HWY_INLINE void operator()(v8 (&c)[3]) const {
        const auto middle = hn::Set(d8(), std::uint8_t{128});
        v16i lower[3], upper[3];
        for (int j = 0; j < 3; ++j) {
            const auto v = hn::Xor(c[j], middle);
            lower[j] = lower_high(v);
            upper[j] = upper_high(v);
        }
        for (int i = 0; i < 3; ++i) c[i] = pack_bytes(row(i, lower), row(i, upper));
    }

private:
    HWY_INLINE v16i row(int i, const v16i (&part)[3]) const {
        const auto product = [&](int j) HWY_ATTR { return hn::MulFixedPoint15(part[j], m[i][j]); };
        return hn::ShiftRightSame(hn::Add(hn::Add(product(0), product(1)), hn::Add(product(2), add[i])), bits);
    }
    v16i m[3][3], add[3];
    int bits;
};

// Where 32-bit values that are `bits` + 15 bits long stand in their octaves: see octave_place().
class octave_places {
public:
    explicit HWY_INLINE octave_places(std::int32_t bits) : lowest(hn::Set(d32i(), (126 + bits) << 12)) {}
    HWY_INLINE vec<std::uint16_t> operator()(hn::Vec<d32i> low, hn::Vec<d32i> high) const {
        const auto of = [&](hn::Vec<d32i> v) HWY_ATTR {
            const auto as_float = hn::ConvertTo(hn::ScalableTag<float>(), v);
            return hn::Sub(hn::ShiftRight<11>(hn::BitCast(d32i(), as_float)), lowest);
        };
        return pack_words32(of(low), of(high));
    }

private:
    hn::Vec<d32i> lowest;
};

template <>
class matrix_vectors<std::uint16_t> {
public:
    explicit HWY_INLINE matrix_vectors(const fixed_matrix<std::uint16_t>& f)
        : half(hn::Set(d32i(), 1 << f.bits >> 2)), bits(f.bits - 1), places(f.bits) {
        for (int i = 0; i < 3; ++i) {
            bg[i] = factors(f.m[i][0], f.m[i][1]);
            rw[i] = factors(f.m[i][2], f.of_white[i]);
        }
    }
    HWY_INLINE void operator()(vec<std::uint16_t> (&c)[3]) const {
        each_row(c, [&](hn::Vec<d32i> low, hn::Vec<d32i> high) HWY_ATTR {
            return pack_words32(hn::ShiftRightSame(hn::Add(low, half), bits),
                                hn::ShiftRightSame(hn::Add(high, half), bits));
        });
    }
    // To the places of what the matrix gives.
    HWY_INLINE void to_places(vec<std::uint16_t> (&c)[3]) const {
        each_row(c, [&](hn::Vec<d32i> low, hn::Vec<d32i> high) HWY_ATTR { return places(low, high); });
    }

private:
    template <class Finish>
    HWY_INLINE void each_row(vec<std::uint16_t> (&c)[3], Finish finish) const {
        const auto white = hn::Set(d16i(), std::int16_t{32767});
        const auto upper_15 = [&](int i) HWY_ATTR { return hn::BitCast(d16i(), hn::ShiftRight<1>(c[i])); };
        const v16i b = upper_15(0), g = upper_15(1), r = upper_15(2);
        const auto bg_low = hn::InterleaveLower(d16i(), b, g), bg_high = hn::InterleaveUpper(d16i(), b, g);
        const auto rw_low = hn::InterleaveLower(d16i(), r, white), rw_high = hn::InterleaveUpper(d16i(), r, white);
        for (int i = 0; i < 3; ++i)
            c[i] = finish(hn::Add(pair_sums(bg_low, bg[i]), pair_sums(rw_low, rw[i])),
                          hn::Add(pair_sums(bg_high, bg[i]), pair_sums(rw_high, rw[i])));
    }
    v16i bg[3], rw[3]; // factors of the pairs (blue, green) and (red, white)
    hn::Vec<d32i> half;
    int bits;
    octave_places places;
};

// A power to bytes. Constants are members, for compilers make them anew in every turn of a loop otherwise.
class power_byte_vectors {
public:
    explicit HWY_INLINE power_byte_vectors(const power_bytes& p)
        : base(hn::LoadDup128(d8(), p.base)),
          slope(hn::LoadDup128(d8(), p.slope)),
          keep_low(hn::LoadDup128(d8(), p.keep_low)),
          keep_high(hn::LoadDup128(d8(), p.keep_high)),
          octave(hn::Set(tag(), std::uint16_t{0xF000})),
          octave_to_bytes(hn::Set(tag(), std::uint16_t{0x1010})),
          piece(hn::Set(tag(), std::uint16_t{0x0E00})),
          piece_to_bytes(hn::Set(tag(), std::uint16_t{0x8080})),
          upper_half(hn::Set(tag(), std::uint16_t{0x0800})) {}
    // The byte in the upper half of each word; `place` as octave_place() gives it.
    HWY_INLINE vec<std::uint16_t> operator()(vec<std::uint16_t> place) const {
        // Both bytes of a word find theirs.
        const auto by_octave = hn::BitCast(d8(), hn::MulHigh(hn::And(place, octave), octave_to_bytes));
        const auto by_piece = hn::BitCast(d8(), hn::Or(hn::MulHigh(hn::And(place, piece), piece_to_bytes), upper_half));
        const auto word = [&](v8 of) HWY_ATTR { return hn::BitCast(tag(), hn::TableLookupBytes(of, by_piece)); };
        const auto keep = hn::BitCast(
            tag(), hn::OddEven(hn::TableLookupBytes(keep_high, by_octave), hn::TableLookupBytes(keep_low, by_octave)));
        const auto top = hn::Add(word(base), hn::MulHigh(hn::ShiftLeft<7>(place), word(slope)));
        return hn::MulHigh(top, keep);
    }

private:
    using tag = lanes_of<std::uint16_t>;
    v8 base, slope, keep_low, keep_high;
    vec<std::uint16_t> octave, octave_to_bytes, piece, piece_to_bytes, upper_half;
};

template <class T>
HWY_ATTR void fixed_matrix_v(const fixed_matrix<T>& f, std::int32_t x, std::int32_t n, three<T> lines) {
    const matrix_vectors<T> matrix(f);
    for (; x + lane_count<T> <= n; x += lane_count<T>) {
        vec<T> c[3] = {get(lines.line[0] + x), get(lines.line[1] + x), get(lines.line[2] + x)};
        matrix(c);
        for (int i = 0; i < 3; ++i) put(c[i], lines.line[i] + x);
    }
    apply_fixed_matrix(f, x, n, lines);
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace img_pipe
HWY_AFTER_NAMESPACE();
