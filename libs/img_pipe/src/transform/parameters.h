// What a pass's parameters mean to the kernels.
#pragma once
#include "transform_state.h"

#include <img_pipe/kernel_params.h>

namespace img_pipe {

// Parameters within their ranges, and which of them differ from neutral.
struct corrections {
    explicit corrections(const transform_params& params);

    bool white_balance = false;
    bool matrix = false; // colour matrix
    bool colour = false; // saturation or hue
    bool tone = false;   // brightness or contrast
    bool gamma = false;
    bool sharpen = false; // sharpness or denoise
    bool forced = false;

    bool any() const { return white_balance || matrix || colour || tone || gamma || sharpen; }
    // Each sample can be corrected for itself, knowing its own colour alone.
    bool each_sample() const { return !matrix && !colour && !sharpen; }

    float gain[4]; // R, G, B, second G
    float color_matrix[9];
    float saturation, hue, gamma_value;
    std::int32_t contrast, brightness;
    sharpness_params sharpness;
};

// For a mosaic of the format: gains by site, no tone.
sample_params mosaic_gains(const corrections& c, std::uint32_t format);
// Contrast and brightness, then gamma; false when memory is out.
bool add_tone(const corrections& c, lut_context& luts, sample_params& to);

// Gains if asked for, colour matrix, saturation and hue, contrast and brightness, in this order.
matrix_params whole_matrix(const corrections& c, bool with_gains);
// The whole matrix and gamma, for what comes out of a demosaic; false when memory is out.
bool demosaic_colours(const corrections& c, lut_context& luts, bool with_gains, demosaic_params& to);
// The same in terms of Y, U and V as full-range planes of bytes store them, chroma around 128.
matrix_params in_planes(const matrix_params& rgb);

} // namespace img_pipe
