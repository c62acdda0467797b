// The parameters of one pass over an image.
#pragma once
#include <cstdint>

namespace img_pipe {

// Stretch of tone mapping, given with `tonemapping_fixed`; a scale or exponent of 0 means none.
struct tonemapping_stretch {
    float scale = 0;
    float offset = 0;
    float exponent = 0;
    float mean = 0;
};

// Values outside a range act as its nearest end, numbers that are none as neutral. The defaults are neutral.
struct transform_params {
    std::uint32_t optimization_level = 0; // processor mask the kernels may use; 0: the processor's own
    std::uint32_t max_concurrency = 0;    // threads; 0 all, 1 none
    bool copy_if_no_transform = false;    // where the table has no entry, copy the source
    bool force_parameter_route = false;   // colour paths: as if a parameter were set
    bool color_matrix_enable = false;
    float color_matrix[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1}; // row by row; R, G, B
    bool wb_enable = false;
    float wb_gain[4] = {1, 1, 1, 1}; // R, G beside red, B, G beside blue, in lines of a mosaic; 0 to 4
    float saturation = 1;            // 0 to 4
    float hue = 0;                   // half turns, -1 to 1; growing, red becomes yellow
    std::int32_t contrast = 0;       // in 1/256 around mid-grey: -256 is flat, 256 doubles
    std::int32_t brightness = 0;     // in 1/256 of full scale, added
    std::int32_t sharpness = 0;
    std::int32_t denoise = 0;
    float gamma = 1; // exponent of the value in 0 to 1: below 1 lifts the shadows
    bool tonemapping_enable = false;
    bool tonemapping_fixed = false;
    float tonemapping_intensity = 0;
    float tonemapping_global_brightness = 0;
    tonemapping_stretch tonemapping_factors{};
    std::uint8_t route_flags[3] = {}; // any: mono paths as if a parameter were set
};

// The processor mask of the values 0 to 3 of DataStreamTransformOptimizationLevel; any other value counts as 0.
std::uint32_t optimization_mask(std::int64_t level);

} // namespace img_pipe
