// What tests of the pipe share: levels as a caller names them, filled images, sets of parameters, the pairs of the
// tables.
#pragma once
#include "kernel_test.h"

#include <img_pipe/transform_pipe.h>

#include <random>

namespace kernel_test {

// The levels of this processor, as masks that a caller gives.
inline std::vector<std::uint32_t> masks() {
    std::vector<std::uint32_t> all;
    for (const filter_table& level : levels()) all.push_back(level[0].required_cpu);
    return all;
}

inline void fill(const image& to, unsigned seed) {
    std::mt19937 random(seed);
    const format_description d(to.view.format);
    for (std::int32_t i = 0; i < d.plane_count; ++i)
        for (std::int32_t y = 0; y < to.view.height / d.planes[i].vertical_subsampling; ++y)
            for (std::int32_t x = 0; x < line_stride(to.view.format, to.view.width, i); ++x)
                to.view.plane_data[i].data[y * to.view.plane_data[i].stride + x] = static_cast<std::uint8_t>(random());
    // Unused upper bits of unpacked samples are 0.
    const std::uint32_t id = to.view.format;
    unsigned bits = 16;
    for (const char* name : {"Y10 ", "BG10", "GB10", "BA10", "RG10"}) bits = fcc_from_text(name) == id ? 10 : bits;
    for (const char* name : {"Y12 ", "BG12", "GB12", "BA12", "RG12"}) bits = fcc_from_text(name) == id ? 12 : bits;
    if (bits != 16) to.clear_unused_bits(bits);
}

inline std::vector<transform_params> parameter_sets() {
    std::vector<transform_params> all(5);
    all[1].wb_enable = true;
    all[1].wb_gain[0] = 1.7F;
    all[1].wb_gain[2] = 0.6F;
    all[1].brightness = 13;
    all[1].contrast = -40;
    all[1].gamma = 0.6F;
    all[2].saturation = 1.4F;
    all[2].hue = 0.2F;
    all[2].sharpness = 20;
    all[2].denoise = 3;
    all[3].force_parameter_route = true;
    all[3].route_flags[1] = 1;
    all[4].color_matrix_enable = true;
    all[4].color_matrix[1] = -0.3F;
    all[4].contrast = 60;
    all[4].gamma = 1.8F;
    all[4].sharpness = 9;
    return all;
}

struct format_pair {
    std::uint32_t from, to;
};
inline std::vector<format_pair> pairs_of_tables() {
    std::vector<format_pair> all;
    for (const conversion_row& row : conversion_table())
        for (const std::uint32_t from : row.sources)
            for (const std::uint32_t to : row.destinations)
                if (from != 0 && to != 0) all.push_back({from, to});
    return all;
}

} // namespace kernel_test
