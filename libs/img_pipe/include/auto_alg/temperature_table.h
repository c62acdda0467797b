// White balance gains by the light's colour temperature.
#pragma once
#include <cstdint>
#include <span>

namespace auto_alg {

// Gains of red, green and blue for each 100 K from 2500 to 10000.
struct temperature_table {
    static constexpr std::int32_t lowest = 2500, highest = 10000, step = 100;
    static constexpr std::int32_t rows = (highest - lowest) / step + 1;
    float gain[rows][3];
};

// A light whose gains were measured.
struct calibrated_light {
    float temperature = 0; // K; not above 0: none
    float gain[3] = {1, 1, 1};
    friend bool operator==(const calibrated_light&, const calibrated_light&) = default;
};

// Without lights the gains of black bodies, as three narrow bands see them, for a camera that is balanced at 6500 K.
// Each light corrects these where it stands; between two the correction follows the reciprocal of the temperature,
// beyond the last one it stays. The least gain of each row is 1. At most 16 lights count. Gains and temperatures may be
// any numbers.
void make_temperature_table(std::span<const calibrated_light> lights, temperature_table& to);

} // namespace auto_alg
