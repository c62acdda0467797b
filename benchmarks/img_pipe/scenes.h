// Generated scenes with their truth, the mosaic a sensor would see of them, and measures of a picture against the
// truth. Values are 0 to 255, as displayed; everything follows from the seed.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

struct picture {
    int width = 0, height = 0;
    std::vector<float> rgb; // three planes
    picture() = default;
    picture(int w, int h) : width(w), height(h), rgb(static_cast<std::size_t>(w) * static_cast<std::size_t>(h) * 3) {}
    std::size_t size() const { return rgb.size() / 3; }
    float& at(int c, int x, int y) {
        return rgb[static_cast<std::size_t>(c) * size() +
                   static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)];
    }
    float at(int c, int x, int y) const { return const_cast<picture*>(this)->at(c, x, y); }
};

constexpr int scene_size = 384;
struct scene_kind {
    const char* name;
    picture (*render)(unsigned seed);
};
extern const std::vector<scene_kind> scenes;

// Shot and read noise: the variance of a value v is shot * v + read * read.
struct noise_level {
    const char* name;
    double shot, read;
};
extern const std::vector<noise_level> noise_levels;

// A mosaic, red at the upper left, values 0 to 65535.
std::vector<std::uint16_t> mosaic_of(const picture& scene, const noise_level& noise, unsigned seed);

struct measures {
    double cpsnr;        // dB, all three channels
    double zipper;       // percent of pixels
    double false_colour; // mean distance of the colour differences Cb and Cr
};
// All leave out 8 pixels at the edges.
measures compare(const picture& truth, const picture& result);

// A slow reference in double precision: candidates of green along both directions, chosen by the change of the colour
// differences around, then a refinement of each channel along the chosen direction.
picture reference_demosaic(const std::vector<std::uint16_t>& mosaic, int width, int height);
