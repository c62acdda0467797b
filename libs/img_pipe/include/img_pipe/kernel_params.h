// The parameter records of the kernels, by slot. Plain data only.
#pragma once
#include <cstdint>

namespace img_pipe {

// A power of 16-bit samples, 65535 standing for 1, as vectors compute it without a table in memory. A sample is moved
// up into the top octave, whose eight pieces are base + z * (slope +- z * bend) with z from 0 to 1 in a piece, and what
// is found there is made smaller by a factor of the sample's own octave. 0 and 65535 stay.
struct power_curve {
    alignas(16) std::uint16_t base[8];
    alignas(16) std::uint16_t slope[8];
    alignas(16) std::uint16_t bend[8];
    // By the octave's number + 1: the part to take away, in 1/65536. Of the top one, which 0 stands for, it is nothing.
    alignas(16) std::uint8_t less_low[16];
    alignas(16) std::uint8_t less_high[16];
    bool rising; // the bend is added: exponents above 1
};
// How far the curve is from the power's nearest counts at most; powers that no curve comes near enough to have none.
constexpr int power_curve_error = 3;

// Per-sample correction of mosaics and grey images, in the value range of the 16-bit sample (8-bit samples count as
// value * 257): out = table[clamp(in * gain + offset)]. Sites are the four of the 2 x 2 cell, line by line; a grey
// image uses the first. Neutral: gain 1, offset 0, no table; the result then equals the input.
struct sample_params {
    float gain[4];                      // 0 to 4 x contrast
    float offset;                       // in counts of 65535
    const std::uint16_t* table;         // 65536 entries, or null
    const std::uint8_t* table8;         // the same for 8 bits, 256 entries; both null or both set
    const power_curve* curve = nullptr; // gives the entries of `table`; null where no curve does
};

// Colour correction of blue, green, red samples in 0 to 65535 (16 bits) or 0 to 255 (8 bits):
// out_i = sum_j m[i][j] * in_j + m[i][3], i and j over R, G, B; offsets in parts of full scale.
struct matrix_params {
    float m[3][4];
};

// Demosaic: white balance and per-sample tone on the way in, colour matrix and gamma on the way out.
struct demosaic_params {
    bool samples_on; // apply `samples` while lines are read
    bool matrix_on;  // apply `matrix` to the colour
    sample_params samples;
    matrix_params matrix;
    const std::uint16_t* gamma;         // 65536 entries after the matrix, or null
    const std::uint8_t* gamma8;         // 256 entries
    const power_curve* curve = nullptr; // gives the entries of `gamma`; null where no curve does
};

struct sharpness_params {
    std::int32_t sharpness; // 0 neutral
    std::int32_t denoise;   // 0 neutral
};

// out = p / (p + adaptation at the cell's luminance) * scale + offset. Bytes need the byte table alone, 16-bit samples
// the scaled adaptation, floats the plain one.
struct tonemapping_params {
    float scale;
    float offset;
    const float* adaptation;        // 65536 entries, by luminance
    const float* adaptation_scaled; // the same in counts of 65535
    const std::uint8_t* byte_table; // 256 x 256, luminance bin major, stretch included
};

} // namespace img_pipe
