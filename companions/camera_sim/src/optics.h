// A scene under a light, and how a sensor sees it: light falls for the exposure time through iris and lens on pixels
// that count electrons, have a full well, noise and a black level; gains act on what was counted.
#pragma once

#include <camera_sim/camera.h>

#include <array>
#include <cstdint>
#include <span>
#include <vector>

namespace camera_sim {

// Of one frame.
struct sensor_settings {
    uint32_t width{}, height{}, offset_x{}, offset_y{}, pixel_format{};
    double exposure{};                      // us
    std::array<double, 3> gain{};           // dB; red, green, blue; a grey sensor has that of green
    std::array<double, 3> balance{1, 1, 1}; // factors
    uint32_t black_level{};                 // counts of 255 above the sensor's own
    uint32_t iris{}, focus{};
};

// Not thread-safe. Takes memory when the lens moves.
class optics {
public:
    explicit optics(const camera_options& options);

    // Grey and mosaics of 8 bits.
    [[nodiscard]] static bool shows(uint32_t pixel_format);
    // Fills width x height bytes; `seconds` since the acquisition began is the time at which the exposure begins.
    void expose(uint64_t frame, double seconds, const sensor_settings& now, std::span<std::byte> out);

private:
    using plane = std::vector<uint8_t>; // reflectance, 255 is all, of the whole sensor
    void look(uint32_t focus);
    [[nodiscard]] light_change light_at(uint64_t frame) const;
    [[nodiscard]] double lamp(double seconds, double exposure_us) const;

    scene_options scene;
    uint32_t width, height;
    double electrons = 0;      // per us at the start's iris, of all that is reflected
    std::vector<plane> sharp;  // one of a grey scene, else red, green, blue
    std::vector<plane> seen;   // through the lens
    uint32_t seen_at = 0;      // focus position
    std::vector<int8_t> noise; // of variance 1, in 1/32
};

} // namespace camera_sim
