// What tests of the pipe share: levels as a caller names them, filled images, sets of parameters, the pairs of the
// tables.
#pragma once
#include "kernel_test.h"

#include <img_pipe/transform_pipe.h>

#include <map>
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
                line(to.view, y, i)[x] = static_cast<std::uint8_t>(random());
    // Unused upper bits of unpacked samples are 0.
    const std::uint32_t id = to.view.format;
    unsigned bits = 16;
    for (const char* name : {"Y10 ", "BG10", "GB10", "BA10", "RG10"}) bits = fcc_from_text(name) == id ? 10 : bits;
    for (const char* name : {"Y12 ", "BG12", "GB12", "BA12", "RG12"}) bits = fcc_from_text(name) == id ? 12 : bits;
    if (bits != 16) to.clear_unused_bits(bits);
}

inline std::vector<transform_params> parameter_sets() {
    return {{},
            {.wb_enable = true, .wb_gain = {1.7F, 1, 0.6F, 1}, .contrast = -40, .brightness = 13, .gamma = 0.6F},
            {.saturation = 1.4F, .hue = 0.2F, .sharpness = 20, .denoise = 3},
            {.force_parameter_route = true,
             .tonemapping_enable = true,
             .tonemapping_fixed = true,
             .tonemapping_intensity = 3,
             .tonemapping_global_brightness = 0.4F,
             .tonemapping_factors = {1.2F, -0.1F, 0.8F, 0.2F},
             .route_flags = {0, 1, 0}},
            {.color_matrix_enable = true,
             .color_matrix = {1, -0.3F, 0, 0, 1, 0, 0, 0, 1},
             .contrast = 60,
             .sharpness = 9,
             .gamma = 1.8F}};
}

// By level and set of parameters, as a stream would have it: gamma tables are built once.
using pipe_set = std::map<std::pair<std::uint32_t, std::size_t>, transform_pipe>;

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

inline std::vector<std::uint32_t> in_place_formats() {
    std::vector<std::uint32_t> all;
    for (const in_place_row& row : in_place_table())
        for (const std::uint32_t id : row.formats)
            if (id != 0) all.push_back(id);
    return all;
}

} // namespace kernel_test
