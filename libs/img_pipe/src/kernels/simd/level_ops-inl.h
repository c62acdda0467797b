// What vectors of one level do in an instruction or two and Highway has no name for. All act within each block of 128
// bits, and alike on every level. Include after <hwy/highway.h>, outside any namespace; internal linkage.
#pragma once
#include <hwy/highway.h>

#include <cstdint>
#include <cstring>

HWY_BEFORE_NAMESPACE();
namespace img_pipe {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using vec_u8 = hn::Vec<hn::ScalableTag<std::uint8_t>>;
using vec_u16 = hn::Vec<hn::ScalableTag<std::uint16_t>>;
using vec_i16 = hn::Vec<hn::ScalableTag<std::int16_t>>;
using vec_i32 = hn::Vec<hn::ScalableTag<std::int32_t>>;
using vec_f32 = hn::Vec<hn::ScalableTag<float>>;

#if HWY_TARGET == HWY_NEON

// Signed 16 bits to bytes, clamped.
HWY_INLINE vec_u8 pack_bytes(vec_i16 lower, vec_i16 upper) {
    return vec_u8{vqmovun_high_s16(vqmovun_s16(lower.raw), upper.raw)};
}

// To the nearest of 0 to 65535, half to even. Below 2^31.
HWY_INLINE vec_u16 pack_nearest(vec_f32 low, vec_f32 high) {
    return vec_u16{vqmovun_high_s32(vqmovun_s32(vcvtnq_s32_f32(low.raw)), vcvtnq_s32_f32(high.raw))};
}

// a * b of each lane, summed over the two lanes of a 32-bit one.
HWY_INLINE vec_i32 pair_sums(vec_i16 a, vec_i16 b) {
    return vec_i32{vpaddq_s32(vmull_s16(vget_low_s16(a.raw), vget_low_s16(b.raw)), vmull_high_s16(a.raw, b.raw))};
}

// Byte `place` of the 32 that two vectors hold, 0 to 31. `whole` is the byte whose upper five bits the place is.
HWY_INLINE vec_u8 look_up_32(const vec_u8 (&parts)[2], vec_u8 place, vec_u8) {
    return vec_u8{vqtbl2q_u8({{parts[0].raw, parts[1].raw}}, place.raw)};
}

// (slope * within) >> 4; `within` below 8.
HWY_INLINE vec_u8 rise_within(vec_u8 slope, vec_u8 within) {
    const auto low = vmull_u8(vget_low_u8(slope.raw), vget_low_u8(within.raw));
    return vec_u8{vshrn_high_n_u16(vshrn_n_u16(low, 4), vmull_high_u8(slope.raw, within.raw), 4)};
}

// `v`, and 0 where `with` is 0; `with` has no sign bit.
HWY_INLINE vec_u16 unless_zero(vec_u16 v, vec_u16 with) {
    return vec_u16{vandq_u16(v.raw, vtstq_u16(with.raw, with.raw))};
}

// Eight entries of a table, by their places.
HWY_INLINE void look_up_eight(const std::uint16_t* table, const std::uint16_t* places, std::uint16_t* out) {
    const auto at = vld1q_u16(places);
    auto v = vdupq_n_u16(table[vgetq_lane_u16(at, 0)]);
    v = vld1q_lane_u16(table + vgetq_lane_u16(at, 1), v, 1);
    v = vld1q_lane_u16(table + vgetq_lane_u16(at, 2), v, 2);
    v = vld1q_lane_u16(table + vgetq_lane_u16(at, 3), v, 3);
    v = vld1q_lane_u16(table + vgetq_lane_u16(at, 4), v, 4);
    v = vld1q_lane_u16(table + vgetq_lane_u16(at, 5), v, 5);
    v = vld1q_lane_u16(table + vgetq_lane_u16(at, 6), v, 6);
    v = vld1q_lane_u16(table + vgetq_lane_u16(at, 7), v, 7);
    vst1q_u16(out, v);
}
HWY_INLINE void look_up_eight(const std::uint8_t* table, const std::uint16_t* places, std::uint8_t* out) {
    const auto at = vld1q_u16(places);
    auto v = vdup_n_u8(table[vgetq_lane_u16(at, 0)]);
    v = vld1_lane_u8(table + vgetq_lane_u16(at, 1), v, 1);
    v = vld1_lane_u8(table + vgetq_lane_u16(at, 2), v, 2);
    v = vld1_lane_u8(table + vgetq_lane_u16(at, 3), v, 3);
    v = vld1_lane_u8(table + vgetq_lane_u16(at, 4), v, 4);
    v = vld1_lane_u8(table + vgetq_lane_u16(at, 5), v, 5);
    v = vld1_lane_u8(table + vgetq_lane_u16(at, 6), v, 6);
    v = vld1_lane_u8(table + vgetq_lane_u16(at, 7), v, 7);
    vst1_u8(out, v);
}

#else

#if HWY_TARGET == HWY_AVX2
HWY_INLINE vec_u8 pack_bytes(vec_i16 lower, vec_i16 upper) { return {_mm256_packus_epi16(lower.raw, upper.raw)}; }
HWY_INLINE vec_u16 pack_nearest(vec_f32 low, vec_f32 high) {
    return {_mm256_packus_epi32(_mm256_cvtps_epi32(low.raw), _mm256_cvtps_epi32(high.raw))};
}
HWY_INLINE vec_i32 pair_sums(vec_i16 a, vec_i16 b) { return {_mm256_madd_epi16(a.raw, b.raw)}; }
HWY_INLINE vec_u8 by_top_bit(vec_u8 mask, vec_u8 b, vec_u8 a) { return {_mm256_blendv_epi8(a.raw, b.raw, mask.raw)}; }
HWY_INLINE vec_i16 pair_products(vec_u8 a, vec_u8 b) { return {_mm256_maddubs_epi16(a.raw, b.raw)}; }
HWY_INLINE vec_u16 unless_zero(vec_u16 v, vec_u16 with) { return {_mm256_sign_epi16(v.raw, with.raw)}; }
#else
HWY_INLINE vec_u8 pack_bytes(vec_i16 lower, vec_i16 upper) { return vec_u8{_mm_packus_epi16(lower.raw, upper.raw)}; }
HWY_INLINE vec_u16 pack_nearest(vec_f32 low, vec_f32 high) {
    return vec_u16{_mm_packus_epi32(_mm_cvtps_epi32(low.raw), _mm_cvtps_epi32(high.raw))};
}
HWY_INLINE vec_i32 pair_sums(vec_i16 a, vec_i16 b) { return vec_i32{_mm_madd_epi16(a.raw, b.raw)}; }
HWY_INLINE vec_u8 by_top_bit(vec_u8 mask, vec_u8 b, vec_u8 a) {
    return vec_u8{_mm_blendv_epi8(a.raw, b.raw, mask.raw)};
}
HWY_INLINE vec_i16 pair_products(vec_u8 a, vec_u8 b) { return vec_i16{_mm_maddubs_epi16(a.raw, b.raw)}; }
HWY_INLINE vec_u16 unless_zero(vec_u16 v, vec_u16 with) { return vec_u16{_mm_sign_epi16(v.raw, with.raw)}; }
#endif

// A look-up takes the lower four bits of a place, the fifth is the top one of `whole`.
HWY_INLINE vec_u8 look_up_32(const vec_u8 (&parts)[2], vec_u8 place, vec_u8 whole) {
    return by_top_bit(whole, hn::TableLookupBytes(parts[1], place), hn::TableLookupBytes(parts[0], place));
}

// 16 times as much in words, for even and for odd bytes: what is asked for is the upper byte.
HWY_INLINE vec_u8 rise_within(vec_u8 slope, vec_u8 within) {
    const hn::ScalableTag<std::uint8_t> tag;
    const hn::ScalableTag<std::uint16_t> wide;
    const auto place = hn::ShiftLeft<4>(hn::BitCast(wide, within));
    const auto of = [&](std::uint16_t which) HWY_ATTR {
        return hn::BitCast(wide, pair_products(slope, hn::BitCast(tag, hn::And(place, hn::Set(wide, which)))));
    };
    return hn::OddEven(hn::BitCast(tag, of(0xFF00)), hn::BitCast(tag, hn::ShiftRight<8>(of(0x00FF))));
}

// Four places are read at once, and what is found goes into vectors without a detour.
HWY_INLINE std::uint64_t four_places(const std::uint16_t* places) {
    std::uint64_t four = 0;
    std::memcpy(&four, places, sizeof(four));
    return four;
}
HWY_INLINE void look_up_eight(const std::uint16_t* table, const std::uint16_t* places, std::uint16_t* out) {
    const std::uint64_t a = four_places(places), b = four_places(places + 4);
    auto v = _mm_cvtsi32_si128(table[a & 0xFFFF]);
    v = _mm_insert_epi16(v, table[a >> 16 & 0xFFFF], 1);
    v = _mm_insert_epi16(v, table[a >> 32 & 0xFFFF], 2);
    v = _mm_insert_epi16(v, table[a >> 48], 3);
    v = _mm_insert_epi16(v, table[b & 0xFFFF], 4);
    v = _mm_insert_epi16(v, table[b >> 16 & 0xFFFF], 5);
    v = _mm_insert_epi16(v, table[b >> 32 & 0xFFFF], 6);
    v = _mm_insert_epi16(v, table[b >> 48], 7);
    std::memcpy(out, &v, sizeof(v));
}
HWY_INLINE void look_up_eight(const std::uint8_t* table, const std::uint16_t* places, std::uint8_t* out) {
    const std::uint64_t a = four_places(places), b = four_places(places + 4);
    auto v = _mm_cvtsi32_si128(table[a & 0xFFFF]);
    v = _mm_insert_epi8(v, table[a >> 16 & 0xFFFF], 1);
    v = _mm_insert_epi8(v, table[a >> 32 & 0xFFFF], 2);
    v = _mm_insert_epi8(v, table[a >> 48], 3);
    v = _mm_insert_epi8(v, table[b & 0xFFFF], 4);
    v = _mm_insert_epi8(v, table[b >> 16 & 0xFFFF], 5);
    v = _mm_insert_epi8(v, table[b >> 32 & 0xFFFF], 6);
    v = _mm_insert_epi8(v, table[b >> 48], 7);
    std::memcpy(out, &v, 8);
}

#endif

} // namespace
} // namespace HWY_NAMESPACE
} // namespace img_pipe
HWY_AFTER_NAMESPACE();
