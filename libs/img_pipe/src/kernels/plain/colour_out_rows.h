// What the demosaic does to a line of colours before it leaves: a colour matrix in fixed point and gamma tables. The
// reference for the vector levels.
#pragma once
#include "adjust_rows.h"

namespace img_pipe {
namespace {

// A colour matrix in fixed point: products are rounded to `bits` fractional bits each; no sum of them overflows 16
// bits. Lines are blue, green, red, as everywhere; rows and columns of `m` too.
struct fixed_matrix {
    std::int16_t m[3][3];
    std::int16_t offset[3];
    std::int32_t bits;
};

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
        for (int j = 0; j < 3; ++j) f.m[2 - i][2 - j] = static_cast<std::int16_t>(nearest(m[i][j] * scale));
        f.offset[2 - i] = static_cast<std::int16_t>(nearest(m[i][3] * scale));
    }
    return f;
}

// 15 bits of a sample, and back: 8 bits rounded, 16 bits with the upper bit repeated.
template <class T>
[[maybe_unused]] std::int32_t to_15(T v) {
    return sizeof(T) == 1 ? v << 7 : v >> 1;
}
template <class T>
[[maybe_unused]] T from_15(std::int32_t v) {
    return static_cast<T>(sizeof(T) == 1 ? (v + 64 > 32767 ? 32767 : v + 64) >> 7 : v << 1 | v >> 14);
}

// (a * b) / 32768, rounded to the nearest, halves up.
[[maybe_unused]] std::int32_t fixed_product(std::int32_t a, std::int32_t b) { return (a * b + 16384) >> 15; }

// In place on pixels [x, n).
template <class T>
[[maybe_unused]] void apply_fixed_matrix(const fixed_matrix& f, std::int32_t x, std::int32_t n, three<T> c) {
    const std::int32_t most = (1 << f.bits) - 1;
    for (; x < n; ++x) {
        const std::int32_t v[3] = {to_15<T>(c.line[0][x]), to_15<T>(c.line[1][x]), to_15<T>(c.line[2][x])};
        for (int i = 0; i < 3; ++i) {
            std::int32_t sum = f.offset[i];
            for (int j = 0; j < 3; ++j) sum += fixed_product(v[j], f.m[i][j]);
            sum = sum < 0 ? 0 : sum > most ? most : sum;
            c.line[i][x] = from_15<T>(sum << (15 - f.bits));
        }
    }
}

// The upper byte of what the table gives.
[[maybe_unused]] void look_up_byte(const std::uint16_t* table, const std::uint16_t* line, std::int32_t n,
                                   std::uint8_t* out) {
    for (std::int32_t x = 0; x < n; ++x) out[x] = static_cast<std::uint8_t>(table[line[x]] >> 8U);
}

} // namespace
} // namespace img_pipe
