// From a brightness to the next exposure, gain and iris.
#pragma once
#include "records.h"

namespace auto_alg {

struct auto_step {
    std::int32_t exposure;
    float gain;
    std::int32_t iris;
};

// The brightness to reach, given what is wanted (1 to 255; 0: the default) and the share of bright records. It is that
// wanted unless more records are bright than an image of the wanted mean can have: those are clipped and hide how far
// over they are, and a lower reference makes the step longer. Their share alone never starts a step, so no cycle can
// come of it; and the step stays short of the wanted brightness, because the records are at least bright.
float reference_brightness(std::uint32_t wanted, float bright_share);

// Enabled, and with limits that hold a value which can be told: whole us from 1 on, 32 bits of iris, finite gains.
bool is_steered(const exposure_params& exposure);
bool is_steered(const gain_params& gain);
bool is_steered(const iris_params& iris);

// Both in 0 to 1, proportional to light. One control moves at a time: light is taken away by gain first and added by
// exposure first. The current values come back, brought into their limits, where nothing is to be done.
auto_step calc_auto_step(float brightness, float reference, const exposure_params& exposure, const gain_params& gain,
                         const iris_params& iris);

} // namespace auto_alg
