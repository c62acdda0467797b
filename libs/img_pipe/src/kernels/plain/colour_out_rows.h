// What the demosaic does to a line of colours before it leaves: a colour matrix in fixed point and gamma tables. The
// reference for the vector levels.
#pragma once
#include "adjust_rows.h"

namespace img_pipe {
namespace {

// A colour matrix in fixed point: coefficients of `bits` fractional bits, as many as keep the sum of a row's products
// and offset within 32 bits. Lines are blue, green, red, as everywhere; rows and coefficients too. Samples of 16 bits
// take part with their upper 15.
template <class T>
struct fixed_matrix {
    static constexpr std::int32_t white = sizeof(T) == 1 ? 255 : 32767;
    struct row {
        std::int16_t m[3];
        std::int16_t of_white; // the offset in parts of white
        std::int32_t bits;
    } rows[3];
};

// Coefficients beyond 1000 count as that, what is no number as 0.
template <class T>
[[maybe_unused]] fixed_matrix<T> fixed_of(const matrix_params& p) {
    fixed_matrix<T> f{};
    for (int i = 0; i < 3; ++i) {
        float m[4], above = 0, below = 0, largest = 1;
        for (int j = 0; j < 4; ++j) {
            const float v = p.m[i][j];
            m[j] = v > 1000 ? 1000.0F : v < -1000 ? -1000.0F : v == v ? v : 0.0F;
            const float size = m[j] < 0 ? -m[j] : m[j];
            if (m[j] > 0) above += size;
            if (m[j] < 0) below += size;
            if (size > largest) largest = size;
        }
        auto& row = f.rows[2 - i];
        const float sum = above > below ? above : below;
        const auto fits = [&] {
            const auto scale = static_cast<float>(1 << row.bits);
            return largest * scale <= 32767.0F && sum * scale <= 65530.0F;
        };
        row.bits = 14;
        while (!fits()) --row.bits;
        const auto scale = static_cast<float>(1 << row.bits);
        for (int j = 0; j < 3; ++j) row.m[2 - j] = static_cast<std::int16_t>(nearest(m[j] * scale));
        row.of_white = static_cast<std::int16_t>(nearest(m[3] * scale));
    }
    return f;
}

// In place on pixels [x, n).
template <class T>
[[maybe_unused]] void apply_fixed_matrix(const fixed_matrix<T>& f, std::int32_t x, std::int32_t n, three<T> c) {
    constexpr std::int32_t white = fixed_matrix<T>::white, unused = sizeof(T) == 1 ? 0 : 1;
    for (; x < n; ++x) {
        const std::int32_t b = c.line[0][x] >> unused, g = c.line[1][x] >> unused, r = c.line[2][x] >> unused;
        for (int i = 0; i < 3; ++i) {
            const auto& row = f.rows[i];
            const std::int32_t half = 1 << row.bits >> 1;
            std::int32_t sum = (b * row.m[0] + g * row.m[1] + half + r * row.m[2] + white * row.of_white) >> row.bits;
            sum = sum < 0 ? 0 : sum > white ? white : sum;
            c.line[i][x] = static_cast<T>(unused == 0 ? sum : sum << 1 | sum >> 14); // the lowest bit as the highest
        }
    }
}

// Words of columns [x, n) through their table, in place.
[[maybe_unused]] void gamma_words(const power_curve*, const std::uint16_t* table, std::int32_t x, std::int32_t n,
                                  std::uint16_t* line) {
    for (; x < n; ++x) line[x] = table[line[x]];
}

// What happens to colours before they leave as bytes: the matrix, then gamma along its curve.
template <class T>
struct colour_finish {
    bool matrix_on;
    fixed_matrix<T> matrix;
    const byte_curve* curve;    // of 8-bit lanes; null: no gamma
    const std::uint16_t* table; // of 16-bit lanes; null: no gamma
    const power_curve* power;   // that gives the table's entries
};

// Columns [x, n) of a line of colours to bytes, which may be the same memory.
template <class T>
[[maybe_unused]] void finish_line(const colour_finish<T>& f, std::int32_t x, std::int32_t n, three<T> line,
                                  three8 bytes) {
    if (f.matrix_on) apply_fixed_matrix(f.matrix, x, n, line);
    for (int i = 0; i < 3; ++i)
        for (std::int32_t k = x; k < n; ++k) {
            const T v = line.line[i][k];
            if constexpr (sizeof(T) == 1)
                bytes.line[i][k] = f.curve != nullptr ? f.curve->table[v] : v;
            else
                bytes.line[i][k] = static_cast<std::uint8_t>((f.table != nullptr ? f.table[v] : v) >> 8U);
        }
}

} // namespace
} // namespace img_pipe
