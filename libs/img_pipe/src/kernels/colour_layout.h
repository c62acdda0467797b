// How the pixels of the colour formats lie in memory, and which of them a kernel of colour lines knows.
#pragma once
#include "rows.h"

namespace img_pipe {
namespace {

// A group of a packed YUV format: the places of its samples. All pixels of a group share the chroma.
struct yuv_group {
    std::int32_t pixels; // 0: no such format
    std::int32_t bytes;
    std::int32_t y[4];
    std::int32_t u, v;
};

[[maybe_unused]] yuv_group yuv_group_of(std::uint32_t id) {
    if (id == fcc("YUY2")) return {2, 4, {0, 2, 0, 0}, 1, 3};
    if (id == fcc("UYVY")) return {2, 4, {1, 3, 0, 0}, 0, 2};
    if (id == fcc("Y411")) return {4, 6, {1, 2, 4, 5}, 0, 3};
    if (id == fcc("Y412")) return {4, 6, {0, 1, 3, 4}, 2, 5};
    return {};
}

// Bytes of a line of the format, the last group cut as the vocabulary's strides cut it.
[[maybe_unused]] std::int32_t yuv_line_bytes(const yuv_group& g, std::int32_t width) {
    return static_cast<std::int32_t>(std::int64_t{width} * g.bytes / g.pixels);
}

enum class pixels : std::uint8_t {
    none,
    grey,    // one sample
    mosaic,  // one sample of three
    bgr3,    // blue, green, red
    bgr4,    // and alpha
    bgr16,   // blue, green, red, alpha of 16 bits
    yuv,     // packed, in groups
    yuv_444, // three planes
    yuv_420, // three planes, chroma of half the size
};

[[maybe_unused]] pixels pixels_of(std::uint32_t id) {
    if (id == fcc("BGR3")) return pixels::bgr3;
    if (id == fcc("BGR4")) return pixels::bgr4;
    if (id == fcc("RGB6")) return pixels::bgr16;
    if (id == fcc("YU8p")) return pixels::yuv_444;
    if (id == fcc("I420") || id == fcc("YV12")) return pixels::yuv_420;
    if (yuv_group_of(id).pixels != 0) return pixels::yuv;
    const sample_layout samples = layout_of(id);
    if (samples.mosaic != phase::grey) return pixels::mosaic;
    // Grey pictures begin with Y; layout_of also knows raw and polarisation samples, which are none.
    return samples.pack != packing::none && (id & 0xFF) == 'Y' ? pixels::grey : pixels::none;
}

// The colour of a mosaic's site, by phase and place in the 2 x 2 cell (line by line): 0 blue, 1 green, 2 red.
[[maybe_unused]] int colour_of_site(phase mosaic, std::int32_t y, std::int32_t x) {
    static constexpr std::int8_t colours[4][4] = {{0, 1, 1, 2}, {1, 0, 2, 1}, {1, 2, 0, 1}, {2, 1, 1, 0}};
    return colours[static_cast<int>(mosaic)][(y & 1) * 2 + (x & 1)];
}

// Three lines of one kind of sample: blue, green, red or Y, U, V.
template <class T>
struct three {
    T* line[3];
};
using three8 = three<std::uint8_t>;
using three16 = three<std::uint16_t>;
using in8 = three<const std::uint8_t>;
using in16 = three<const std::uint16_t>;

} // namespace
} // namespace img_pipe
