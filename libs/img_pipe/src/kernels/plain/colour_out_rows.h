// What the demosaic does to a line of colours before it leaves: a colour matrix in fixed point and gamma tables. The
// reference for the vector levels.
#pragma once
#include "../power_bytes.h"
#include "adjust_rows.h"

namespace img_pipe {
namespace {

// Rows of a matrix as lines go, blue first, their coefficients too; the fourth is the offset in parts of white.
// Coefficients beyond 1000 count as that, what is no number as 0.
struct matrix_rows {
    float m[3][4];
    float reach[3]; // how far a row's results lie from black at most, in parts of white
};
[[maybe_unused]] matrix_rows rows_of(const matrix_params& p) {
    matrix_rows out{};
    for (int i = 0; i < 3; ++i) {
        float above = 0, below = 0;
        for (int j = 0; j < 4; ++j) {
            const float v = p.m[2 - i][j == 3 ? 3 : 2 - j];
            const float m = v > 1000 ? 1000.0F : v < -1000 ? -1000.0F : v == v ? v : 0.0F;
            out.m[i][j] = m;
            if (m > 0) above += m;
            if (m < 0) below -= m;
        }
        out.reach[i] = above > below ? above : below;
    }
    return out;
}

// A colour matrix in fixed point, by the width of its samples.
template <class T>
struct fixed_matrix;

// Products of a sample less 128 keep `bits` bits behind the point, as many as let the sum fit into 16 bits. `add` is
// what the 128 stand for, the offset and a half. Of a row that goes beyond 127 times white the whole becomes smaller.
template <>
struct fixed_matrix<std::uint8_t> {
    std::int16_t m[3][3], add[3];
    std::int32_t bits;
};

// Coefficients of `bits` fractional bits, as many as keep the sum of a row's products and offset within 32 bits.
// Samples take part with their upper 15 bits.
template <>
struct fixed_matrix<std::uint16_t> {
    static constexpr std::int32_t white = 32767;
    std::int16_t m[3][3], of_white[3];
    std::int32_t bits;
};

[[maybe_unused]] void fix_matrix(const matrix_params& p, fixed_matrix<std::uint8_t>& f) {
    matrix_rows rows = rows_of(p);
    float most = 0;
    for (int i = 0; i < 3; ++i) {
        if (rows.reach[i] > 127) {
            for (float& m : rows.m[i]) m *= 127 / rows.reach[i];
            rows.reach[i] = 127;
        }
        if (rows.reach[i] > most) most = rows.reach[i];
    }
    f.bits = 6;
    while (most * static_cast<float>(1 << f.bits) > 127.5F) --f.bits;
    for (int i = 0; i < 3; ++i) {
        std::int32_t sum = nearest(rows.m[i][3] * static_cast<float>(255 << f.bits)) + (1 << f.bits >> 1);
        for (int j = 0; j < 3; ++j) {
            const std::int32_t m = nearest(rows.m[i][j] * static_cast<float>(128 << f.bits));
            f.m[i][j] = static_cast<std::int16_t>(m);
            sum += m;
        }
        f.add[i] = static_cast<std::int16_t>(sum);
    }
}

[[maybe_unused]] void fix_matrix(const matrix_params& p, fixed_matrix<std::uint16_t>& f) {
    const matrix_rows rows = rows_of(p);
    float largest = 1, sum = 0;
    for (int i = 0; i < 3; ++i) {
        for (const float m : rows.m[i]) {
            const float size = m < 0 ? -m : m;
            if (size > largest) largest = size;
        }
        if (rows.reach[i] > sum) sum = rows.reach[i];
    }
    f.bits = 14;
    while (largest * static_cast<float>(1 << f.bits) > 32767 || sum * static_cast<float>(1 << f.bits) > 65530) --f.bits;
    const auto scale = static_cast<float>(1 << f.bits);
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) f.m[i][j] = static_cast<std::int16_t>(nearest(rows.m[i][j] * scale));
        f.of_white[i] = static_cast<std::int16_t>(nearest(rows.m[i][3] * scale));
    }
}

// In place on pixels [x, n).
[[maybe_unused]] void apply_fixed_matrix(const fixed_matrix<std::uint8_t>& f, std::int32_t x, std::int32_t n,
                                         three8 c) {
    for (; x < n; ++x) {
        std::int32_t in[3];
        for (int j = 0; j < 3; ++j) in[j] = (c.line[j][x] - 128) * 256;
        for (int i = 0; i < 3; ++i) {
            std::int32_t sum = f.add[i];
            for (int j = 0; j < 3; ++j) sum += (in[j] * f.m[i][j] + (1 << 14)) >> 15;
            sum >>= f.bits;
            c.line[i][x] = static_cast<std::uint8_t>(sum < 0 ? 0 : sum > 255 ? 255 : sum);
        }
    }
}

// Of row i: white is fixed_matrix::white << bits.
[[maybe_unused]] std::int32_t matrix_sum(const fixed_matrix<std::uint16_t>& f, int i, const std::int32_t (&in)[3]) {
    std::int32_t sum = f.of_white[i] * fixed_matrix<std::uint16_t>::white;
    for (int j = 0; j < 3; ++j) sum += in[j] * f.m[i][j];
    return sum;
}

[[maybe_unused]] void apply_fixed_matrix(const fixed_matrix<std::uint16_t>& f, std::int32_t x, std::int32_t n,
                                         three16 c) {
    for (; x < n; ++x) {
        const std::int32_t in[3] = {c.line[0][x] >> 1, c.line[1][x] >> 1, c.line[2][x] >> 1};
        for (int i = 0; i < 3; ++i) {
            const std::int32_t v = (matrix_sum(f, i, in) + (1 << f.bits >> 2)) >> (f.bits - 1);
            c.line[i][x] = static_cast<std::uint16_t>(v < 0 ? 0 : v > 65535 ? 65535 : v);
        }
    }
}

// Words of columns [x, n) through their table, in place.
[[maybe_unused]] void gamma_words(const power_curve*, const std::uint16_t* table, std::int32_t x, std::int32_t n,
                                  std::uint16_t* line) {
    for (; x < n; ++x) line[x] = table[line[x]];
}

// What happens to colours before they leave as bytes: the matrix, then gamma. 16-bit samples go from the one to the
// other with the matrix's own bits.
template <class T>
struct colour_finish {
    bool matrix_on;
    fixed_matrix<T> matrix;
    const byte_curve* curve;  // gamma of 8-bit lanes, or null
    const power_bytes* power; // gamma of 16-bit lanes, or null
};

// Columns [x, n) of a line of colours to bytes, which may be the same memory.
[[maybe_unused]] void finish_line(const colour_finish<std::uint8_t>& f, std::int32_t x, std::int32_t n, three8 line,
                                  three8 bytes) {
    if (f.matrix_on) apply_fixed_matrix(f.matrix, x, n, line);
    for (int i = 0; i < 3; ++i)
        for (std::int32_t k = x; k < n; ++k) {
            const std::uint8_t v = line.line[i][k];
            bytes.line[i][k] = f.curve != nullptr ? f.curve->table[v] : v;
        }
}
[[maybe_unused]] void finish_line(const colour_finish<std::uint16_t>& f, std::int32_t x, std::int32_t n, three16 line,
                                  three8 bytes) {
    if (f.power == nullptr && f.matrix_on) apply_fixed_matrix(f.matrix, x, n, line);
    for (; x < n; ++x) {
        const std::int32_t in[3] = {line.line[0][x] >> 1, line.line[1][x] >> 1, line.line[2][x] >> 1};
        for (int i = 0; i < 3; ++i) {
            const std::uint16_t v = line.line[i][x];
            if (f.power == nullptr)
                bytes.line[i][x] = static_cast<std::uint8_t>(v >> 8U);
            else
                bytes.line[i][x] =
                    power_byte(*f.power, f.matrix_on ? octave_place(matrix_sum(f.matrix, i, in), f.matrix.bits)
                                                     : octave_place(v, 1));
        }
    }
}

} // namespace
} // namespace img_pipe
