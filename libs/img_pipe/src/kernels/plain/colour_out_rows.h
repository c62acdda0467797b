// What the demosaic does to a line of colours before it leaves: a colour matrix in fixed point and gamma tables. The
// reference for the vector levels.
#pragma once
#include "adjust_rows.h"

namespace img_pipe {
namespace {

// A colour matrix in fixed point: coefficients of `bits` fractional bits, as many as keep the sum of a row's products
// and offset within 32 bits. Lines are blue, green, red, as everywhere; rows and coefficients too.
struct fixed_matrix {
    struct row {
        std::int16_t m[3];
        std::int32_t offset; // in products, half a result included for rounding
        std::int32_t bits;
    } rows[3];
};

// Coefficients beyond 1000 count as that, what is no number as 0. `white` is the full scale in 15 bits.
[[maybe_unused]] fixed_matrix fixed_of(const matrix_params& p, std::int16_t white) {
    fixed_matrix f{};
    for (int i = 0; i < 3; ++i) {
        float m[4], above = 0, below = 0, largest = 1;
        for (int j = 0; j < 4; ++j) {
            const float v = p.m[i][j];
            m[j] = v > 1000 ? 1000.0F : v < -1000 ? -1000.0F : v == v ? v : 0.0F;
            const float size = m[j] < 0 ? -m[j] : m[j];
            if (m[j] > 0) above += size;
            if (m[j] < 0) below += size;
            if (j < 3 && size > largest) largest = size;
        }
        fixed_matrix::row& row = f.rows[2 - i];
        const float sum = above > below ? above : below;
        const auto fits = [&] {
            const auto scale = static_cast<float>(1 << row.bits);
            return largest * scale <= 32767.0F && sum * scale <= 65530.0F;
        };
        row.bits = 14;
        while (!fits()) --row.bits;
        const auto scale = static_cast<float>(1 << row.bits);
        for (int j = 0; j < 3; ++j) row.m[2 - j] = static_cast<std::int16_t>(nearest(m[j] * scale));
        row.offset = nearest(m[3] * scale) * white + (1 << row.bits >> 1);
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

// In place on pixels [x, n).
template <class T>
[[maybe_unused]] void apply_fixed_matrix(const fixed_matrix& f, std::int32_t x, std::int32_t n, three<T> c) {
    for (; x < n; ++x) {
        const auto b = static_cast<std::int16_t>(to_15<T>(c.line[0][x])),
                   g = static_cast<std::int16_t>(to_15<T>(c.line[1][x])),
                   r = static_cast<std::int16_t>(to_15<T>(c.line[2][x]));
        for (int i = 0; i < 3; ++i) {
            const fixed_matrix::row& row = f.rows[i];
            const std::int32_t sum = (b * row.m[0] + g * row.m[1] + r * row.m[2] + row.offset) >> row.bits;
            c.line[i][x] = from_15<T>(sum < 0 ? 0 : sum > 32767 ? 32767 : sum);
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
