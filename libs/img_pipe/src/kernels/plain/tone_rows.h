// Steps of tone mapping on [x, n) of a line: the luminances of its cells, and the mapped samples.
#pragma once
#include "../rows.h"

#include <img_pipe/kernel_params.h>

#include <cstring>

namespace img_pipe {
namespace {

// What a mosaic line's cells are made of. `green_first`: the first sample of the line is green, so its cell's third
// colour is below it; otherwise below its neighbour.
template <class T>
struct cell_lines {
    const T* own;
    const T* next;
    bool green_first;
};

template <class T>
[[maybe_unused]] std::uint32_t cell_sum(const cell_lines<T>& c, std::int32_t x, std::int32_t width) {
    const std::int32_t right = mirror(x + 1, width);
    const std::int32_t third = c.green_first != ((x & 1) != 0) ? x : right;
    return static_cast<std::uint32_t>(c.own[x] + c.own[right]) + c.next[third];
}

// Places in the byte table: luminance in the high, sample in the low byte.
[[maybe_unused]] void index_bytes(const cell_lines<std::uint8_t>& c, std::int32_t x, std::int32_t width,
                                  std::uint16_t* index) {
    for (; x < width; ++x) index[x] = static_cast<std::uint16_t>(cell_sum(c, x, width) / 3 << 8 | c.own[x]);
}

[[maybe_unused]] void index_words(const cell_lines<std::uint16_t>& c, std::int32_t x, std::int32_t width,
                                  std::uint16_t* index) {
    for (; x < width; ++x) index[x] = static_cast<std::uint16_t>(cell_sum(c, x, width) / 3);
}

// Eight at a time: a store of bytes might change the table or the places, so each one by itself would wait for the
// last.
[[maybe_unused]] void look_up(const std::uint8_t* table, const std::uint16_t* places, std::int32_t n,
                              std::uint8_t* out) {
    std::int32_t x = 0;
    for (; x + 8 <= n; x += 8) {
        std::uint8_t found[8];
        for (int i = 0; i < 8; ++i) found[i] = table[places[x + i]];
        std::memcpy(out + x, found, sizeof(found));
    }
    for (; x < n; ++x) out[x] = table[places[x]];
}

// `adaptation` by sample, in counts of 65535.
[[maybe_unused]] void map_words(const tonemapping_params& params, const std::uint16_t* line, const float* adaptation,
                                std::int32_t x, std::int32_t width, std::uint16_t* out) {
    const float scale = params.scale * 65535.0F, offset = params.offset * 65535.0F;
    for (; x < width; ++x) {
        const auto p = static_cast<float>(line[x]);
        float r = p / (p + adaptation[x]) * scale;
        r = r + offset;
        r = r > 0.0F ? r < 65535.0F ? r : 65535.0F : 0.0F;
        out[x] = static_cast<std::uint16_t>(static_cast<std::int32_t>(r));
    }
}

} // namespace
} // namespace img_pipe
