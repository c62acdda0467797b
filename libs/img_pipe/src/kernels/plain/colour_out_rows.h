// The steps from the colours of a line, given by even and odd column, to the bytes of a destination; the reference for
// the vector levels. Colours are 15 bits (0 to 32767, below 0 counts as 0), or 16 bits for 16-bit destinations.
#pragma once
#include "correct_rows.h"

namespace img_pipe {
namespace {

using s15 = std::int16_t;

// The colours of a line, by even and odd column.
struct colour_halves {
    s15* r[2];
    s15* g[2];
    s15* b[2];
};

// A colour matrix in fixed point: products are rounded to `bits` fractional bits each; no sum of them overflows.
struct fixed_matrix {
    s15 m[3][3];
    s15 offset[3];
    std::int32_t bits;
};

[[maybe_unused]] s15 saturate(std::int32_t v) { return static_cast<s15>(v < -32768 ? -32768 : v > 32767 ? 32767 : v); }
[[maybe_unused]] std::int32_t average(std::int32_t a, std::int32_t b) { return (a + b + 1) >> 1; }
[[maybe_unused]] std::int32_t positive(std::int32_t v) { return v < 0 ? 0 : v; }
// (a * b) / 32768, rounded to the nearest, halves up.
[[maybe_unused]] std::int32_t fixed_product(std::int32_t a, std::int32_t b) { return (a * b + 16384) >> 15; }

// Coefficients beyond 1000 count as that, what is no number as 0.
[[maybe_unused]] fixed_matrix fixed_of(const matrix_params& p) {
    float m[3][4], most = 1;
    for (int i = 0; i < 3; ++i) {
        float above = 0, below = 0;
        for (int j = 0; j < 4; ++j) {
            const float v = p.m[i][j];
            m[i][j] = v > 1000 ? 1000.0F : v < -1000 ? -1000.0F : v == v ? v : 0.0F;
            (m[i][j] > 0 ? above : below) += m[i][j];
        }
        most = above > most ? above : most;
        most = -below > most ? -below : most;
    }
    fixed_matrix f{};
    f.bits = 14;
    while (most * static_cast<float>(1 << f.bits) > 32760.0F) --f.bits;
    const auto scale = static_cast<float>(1 << f.bits);
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) f.m[i][j] = static_cast<s15>(nearest(m[i][j] * scale));
        f.offset[i] = static_cast<s15>(nearest(m[i][3] * scale));
    }
    return f;
}

[[maybe_unused]] void apply_fixed_matrix(const fixed_matrix& f, std::int32_t n, const colour_halves& c) {
    const std::int32_t most = (1 << f.bits) - 1;
    for (int side = 0; side < 2; ++side)
        for (std::int32_t k = 0; k < n; ++k) {
            s15* const at[3] = {c.r[side] + k, c.g[side] + k, c.b[side] + k};
            const std::int32_t v[3] = {positive(*at[0]), positive(*at[1]), positive(*at[2])};
            for (int i = 0; i < 3; ++i) {
                std::int32_t sum = f.offset[i];
                for (int j = 0; j < 3; ++j) sum += fixed_product(v[j], f.m[i][j]);
                sum = sum < 0 ? 0 : sum > most ? most : sum;
                *at[i] = static_cast<s15>(sum << (15 - f.bits));
            }
        }
}

// From here on `width` is in pixels. 8-bit values are (colour + round) / 128 rounded down.
[[maybe_unused]] std::uint8_t byte_of(s15 v, s15 round) { return static_cast<std::uint8_t>(saturate(positive(v) + round) >> 7U); }

[[maybe_unused]] void store_bgr3(const colour_halves& c, std::int32_t width, s15 round, std::uint8_t* to) {
    for (std::int32_t x = 0; x < width; ++x, to += 3) {
        to[0] = byte_of(c.b[x % 2][x / 2], round);
        to[1] = byte_of(c.g[x % 2][x / 2], round);
        to[2] = byte_of(c.r[x % 2][x / 2], round);
    }
}

[[maybe_unused]] void store_bgr4(const colour_halves& c, std::int32_t width, s15 round, std::uint8_t* to) {
    for (std::int32_t x = 0; x < width; ++x, to += 4) {
        to[0] = byte_of(c.b[x % 2][x / 2], round);
        to[1] = byte_of(c.g[x % 2][x / 2], round);
        to[2] = byte_of(c.r[x % 2][x / 2], round);
        to[3] = 255;
    }
}

// 0.299, 0.587, 0.114, written so that grey keeps its value.
[[maybe_unused]] std::int32_t luma_of(std::int32_t r, std::int32_t g, std::int32_t b) {
    return g + fixed_product(r - g, 9798) + fixed_product(b - g, 3736);
}

[[maybe_unused]] void store_luma(const colour_halves& c, std::int32_t width, s15 round, std::uint8_t* to) {
    for (std::int32_t x = 0; x < width; ++x) {
        const std::int32_t i = x % 2, k = x / 2;
        to[x] = byte_of(static_cast<s15>(luma_of(positive(c.r[i][k]), positive(c.g[i][k]), positive(c.b[i][k]))), round);
    }
}

// Blue and red difference of each cell of two columns, plus 32768; full range.
[[maybe_unused]] void chroma(const colour_halves& c, std::int32_t n, std::uint16_t* u, std::uint16_t* v) {
    for (std::int32_t k = 0; k < n; ++k) {
        std::int32_t sides[2][2];
        for (int i = 0; i < 2; ++i) {
            const std::int32_t r = positive(c.r[i][k]), g = positive(c.g[i][k]), b = positive(c.b[i][k]);
            const std::int32_t y = luma_of(r, g, b);
            sides[i][0] = 32768 + fixed_product(b - y, 18492);
            sides[i][1] = 32768 + fixed_product(r - y, 23372);
        }
        u[k] = static_cast<std::uint16_t>(average(sides[0][0], sides[1][0]));
        v[k] = static_cast<std::uint16_t>(average(sides[0][1], sides[1][1]));
    }
}

// The mean of two lines of chroma, as bytes around 128.
[[maybe_unused]] void store_chroma(const std::uint16_t* above, const std::uint16_t* below, std::int32_t n, std::uint8_t* to) {
    for (std::int32_t k = 0; k < n; ++k) {
        const std::int32_t v = average(above[k], below[k]) - 16384 + 64;
        to[k] = static_cast<std::uint8_t>(v < 0 ? 0 : v > 32767 ? 255 : v >> 7);
    }
}

// 15 bits to 16: the mosaic's own samples as they are, and their lowest bit for the others too, so that a grey keeps
// its value. `own` is the line of the mosaic; `own_red_blue` the red or blue halves' side, r or b.
[[maybe_unused]] void widen(const std::uint16_t* own, bool red, int at_c, std::int32_t width, const colour_halves& c) {
    for (std::int32_t x = 0; x < width; ++x) {
        const int i = x % 2;
        const std::int32_t k = x / 2;
        s15* const at[3] = {c.r[i] + k, c.g[i] + k, c.b[i] + k};
        for (int j = 0; j < 3; ++j) *at[j] = static_cast<s15>(positive(*at[j]) << 1 | (own[x] & 1));
        *at[i != at_c ? 1 : red ? 0 : 2] = static_cast<s15>(own[x]);
    }
}

[[maybe_unused]] void apply_matrix(const matrix_params& p, std::int32_t n, const colour_halves& c) {
    for (int side = 0; side < 2; ++side)
        for (std::int32_t k = 0; k < n; ++k) {
            s15* const at[3] = {c.r[side] + k, c.g[side] + k, c.b[side] + k};
            const float v[3] = {static_cast<float>(static_cast<std::uint16_t>(*at[0])),
                                static_cast<float>(static_cast<std::uint16_t>(*at[1])),
                                static_cast<float>(static_cast<std::uint16_t>(*at[2]))};
            for (int i = 0; i < 3; ++i) {
                float sum = p.m[i][0] * v[0];
                sum = sum + p.m[i][1] * v[1];
                sum = sum + p.m[i][2] * v[2];
                sum = sum + p.m[i][3] * 65535.0F;
                sum = sum > 0.0F ? sum : 0.0F;
                sum = sum < 65535.0F ? sum : 65535.0F;
                *at[i] = static_cast<s15>(nearest(sum));
            }
        }
}

[[maybe_unused]] void store_rgb6(const colour_halves& c, std::int32_t width, std::uint8_t* to) {
    for (std::int32_t x = 0; x < width; ++x, to += 8) {
        const auto put = [&](int i, std::uint16_t v) {
            to[i] = static_cast<std::uint8_t>(v);
            to[i + 1] = static_cast<std::uint8_t>(v >> 8U);
        };
        put(0, static_cast<std::uint16_t>(c.b[x % 2][x / 2]));
        put(2, static_cast<std::uint16_t>(c.g[x % 2][x / 2]));
        put(4, static_cast<std::uint16_t>(c.r[x % 2][x / 2]));
        put(6, 65535);
    }
}

} // namespace
} // namespace img_pipe
