// What is measured on a frame: a record for each place of the grid.
#pragma once
#include "choices.h"

#include <auto_alg/auto_pass.h>

#include <span>

namespace auto_alg {

struct byte_record {
    std::uint8_t r, g, b, g2;
};
struct float_record {
    float r, g, b, g2; // 0 to 1
};

struct sample_array {
    std::int32_t count = 0;
    bool is_float = false;
    byte_record byte_places[most_samples];
    float_record float_places[most_samples];

    std::span<byte_record> bytes() { return {byte_places, is_float ? 0U : static_cast<std::size_t>(count)}; }
    std::span<float_record> floats() { return {float_places, is_float ? static_cast<std::size_t>(count) : 0U}; }
};

// A rectangle inside an image.
struct image_area {
    std::int32_t left, top, width, height;
};
// The part of the region inside the image; the whole image when nothing is.
image_area area_of(const img_pipe::img_descriptor& image, const image_region& region);

// Fills `to`; a format that cannot be sampled gives none.
void auto_sample_by_img(const img_pipe::img_descriptor& image, const image_area& area, sample_array& to);

// What the transform will do, done to the records.
void apply_software_clrmtx_to_sampling_data(const software_params& software, sample_array& samples);
void apply_software_wb_to_sampling_data(const white_balance_params& balance, sample_array& samples);
void apply_software_params_to_sampling_data(const software_params& software, sample_array& samples);

struct resulting_brightness {
    float mean;   // of luma, 0 to 1; -1 without records
    float bright; // share of records of bright_luma and more; -1 without records
};
resulting_brightness calc_resulting_brightness_params(sample_array& samples);

} // namespace auto_alg
