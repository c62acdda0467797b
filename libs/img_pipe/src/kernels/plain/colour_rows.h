// Steps of colour lines, pixel by pixel. All work on pixels [x, n) of their lines, so that a vector level can leave the
// rest of a line to them; the arithmetic here is the definition that other levels follow bit by bit.
//
// YUV is full range with the weights 0.299, 0.587, 0.114.
#pragma once
#include "../colour_layout.h"

#include <cstring>

namespace img_pipe {
namespace {

constexpr std::int32_t luma_r = 4899, luma_g = 9617, luma_b = 1868; // of 16384: white stays white
static_assert(luma_r + luma_g + luma_b == 16384);
constexpr std::int32_t u_r = -2765, u_g = -5427, u_b = 8192; // of 16384; grey has no chroma
static_assert(u_r + u_g + u_b == 0);
constexpr std::int32_t v_r = 8192, v_g = -6860, v_b = -1332;
static_assert(v_r + v_g + v_b == 0);
constexpr std::int32_t r_of_v = 11485, g_of_u = 2819, g_of_v = 5850, b_of_u = 14516; // of 8192

[[maybe_unused]] std::uint8_t clamp8(std::int32_t v) {
    return static_cast<std::uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
}

// The product's upper half, doubled and rounded: what a 16-bit vector multiply gives.
[[maybe_unused]] std::int32_t mul_q15(std::int32_t a, std::int32_t b) { return (a * b + 0x4000) >> 15; }

// `have` bytes of the line exist. A sample that a cut group has no byte for takes the one before it.
[[maybe_unused]] void unpack_yuv(const yuv_group& g, const std::uint8_t* p, std::int32_t have, std::int32_t x,
                                 std::int32_t n, three8 out) {
    for (; x < n; ++x) {
        const std::int32_t at = x / g.pixels * g.bytes, y = at + g.y[x % g.pixels];
        out.line[0][x] = y < have ? p[y] : x > 0 ? out.line[0][x - 1] : 0;
        const auto chroma = [&](std::int32_t i) -> std::uint8_t {
            if (at + i < have) return p[at + i];
            return at > 0 ? p[at + i - g.bytes] : 128;
        };
        out.line[1][x] = chroma(g.u);
        out.line[2][x] = chroma(g.v);
    }
}

// The chroma of a group is the mean of its pixels'. Writes nothing beyond `have` bytes; x is a group's first pixel.
[[maybe_unused]] void pack_yuv(const yuv_group& g, in8 in, std::int32_t x, std::int32_t n, std::uint8_t* p,
                               std::int32_t have) {
    for (; x < n; x += g.pixels) {
        const std::int32_t at = x / g.pixels * g.bytes, count = n - x < g.pixels ? n - x : g.pixels;
        std::int32_t sum[2] = {count / 2, count / 2};
        for (std::int32_t i = 0; i < count; ++i) {
            if (at + g.y[i] < have) p[at + g.y[i]] = in.line[0][x + i];
            sum[0] += in.line[1][x + i];
            sum[1] += in.line[2][x + i];
        }
        if (at + g.u < have) p[at + g.u] = static_cast<std::uint8_t>(sum[0] / count);
        if (at + g.v < have) p[at + g.v] = static_cast<std::uint8_t>(sum[1] / count);
    }
}

// Samples of 16 bits in an image need not be aligned.
[[maybe_unused]] std::uint16_t get16(const std::uint8_t* p, std::int32_t i) {
    std::uint16_t v = 0;
    std::memcpy(&v, p + 2 * static_cast<std::ptrdiff_t>(i), 2);
    return v;
}
[[maybe_unused]] void put16(std::uint8_t* p, std::int32_t i, std::uint16_t v) {
    std::memcpy(p + 2 * static_cast<std::ptrdiff_t>(i), &v, 2);
}

[[maybe_unused]] void split_bgr(std::int32_t channels, const std::uint8_t* p, std::int32_t x, std::int32_t n,
                                three8 out) {
    for (; x < n; ++x)
        for (int i = 0; i < 3; ++i) out.line[i][x] = p[x * channels + i];
}

[[maybe_unused]] void split_bgr16(const std::uint8_t* p, std::int32_t x, std::int32_t n, three16 out) {
    for (; x < n; ++x)
        for (int i = 0; i < 3; ++i) out.line[i][x] = get16(p, 4 * x + i);
}

// Alpha is opaque.
[[maybe_unused]] void join_bgr(std::int32_t channels, in8 in, std::int32_t x, std::int32_t n, std::uint8_t* p) {
    for (; x < n; ++x) {
        for (int i = 0; i < 3; ++i) p[x * channels + i] = in.line[i][x];
        if (channels == 4) p[4 * x + 3] = 255;
    }
}

[[maybe_unused]] void join_bgr16(in16 in, std::int32_t x, std::int32_t n, std::uint8_t* p) {
    for (; x < n; ++x) {
        for (int i = 0; i < 3; ++i) put16(p, 4 * x + i, in.line[i][x]);
        put16(p, 4 * x + 3, 65535);
    }
}

[[maybe_unused]] void yuv_to_bgr(in8 in, std::int32_t x, std::int32_t n, three8 out) {
    for (; x < n; ++x) {
        // Six bits behind the point.
        const std::int32_t y = in.line[0][x] * 64 + 32, u = (in.line[1][x] - 128) * 256,
                           v = (in.line[2][x] - 128) * 256;
        out.line[0][x] = clamp8((y + mul_q15(u, b_of_u)) >> 6);
        out.line[1][x] = clamp8((y - mul_q15(u, g_of_u) - mul_q15(v, g_of_v)) >> 6);
        out.line[2][x] = clamp8((y + mul_q15(v, r_of_v)) >> 6);
    }
}

[[maybe_unused]] void bgr_to_luma(in8 in, std::int32_t x, std::int32_t n, std::uint8_t* out) {
    for (; x < n; ++x)
        out[x] = static_cast<std::uint8_t>(
            (in.line[0][x] * luma_b + in.line[1][x] * luma_g + in.line[2][x] * luma_r + 8192) >> 14);
}

[[maybe_unused]] void bgr16_to_luma(in16 in, std::int32_t x, std::int32_t n, std::uint16_t* out) {
    for (; x < n; ++x)
        out[x] = static_cast<std::uint16_t>(
            (in.line[0][x] * luma_b + in.line[1][x] * luma_g + in.line[2][x] * luma_r + 8192) >> 14);
}

[[maybe_unused]] void bgr_to_yuv(in8 in, std::int32_t x, std::int32_t n, three8 out) {
    for (; x < n; ++x) {
        const std::int32_t b = in.line[0][x], g = in.line[1][x], r = in.line[2][x];
        out.line[0][x] = static_cast<std::uint8_t>((b * luma_b + g * luma_g + r * luma_r + 8192) >> 14);
        out.line[1][x] = clamp8(((b * u_b + g * u_g + r * u_r + 8192) >> 14) + 128);
        out.line[2][x] = clamp8(((b * v_b + g * v_g + r * v_r + 8192) >> 14) + 128);
    }
}

// 8 bits are the upper byte of 16, and 16 the byte twice, so that there and back changes nothing. The side of 16 bits
// is given as bytes.
[[maybe_unused]] void narrow(const std::uint8_t* in, std::int32_t x, std::int32_t n, std::uint8_t* out) {
    for (; x < n; ++x) out[x] = in[2 * x + 1];
}
[[maybe_unused]] void widen(const std::uint8_t* in, std::int32_t x, std::int32_t n, std::uint8_t* out) {
    for (; x < n; ++x) out[2 * x] = out[2 * x + 1] = in[x];
}

// Samples of even columns from one line, of odd ones from the other.
template <class T>
[[maybe_unused]] void pick_sites(const T* even, const T* odd, std::int32_t x, std::int32_t n, T* out) {
    for (; x < n; ++x) out[x] = (x & 1) != 0 ? odd[x] : even[x];
}

// `n` means of 2 x 2 samples each.
[[maybe_unused]] void halve(const std::uint8_t* upper, const std::uint8_t* lower, std::int32_t x, std::int32_t n,
                            std::uint8_t* out) {
    for (; x < n; ++x)
        out[x] =
            static_cast<std::uint8_t>((upper[2 * x] + upper[2 * x + 1] + lower[2 * x] + lower[2 * x + 1] + 2) >> 2);
}

} // namespace
} // namespace img_pipe
