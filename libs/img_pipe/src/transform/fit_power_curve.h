// Fits the curve that vectors compute a power by.
#pragma once

#include <img_pipe/kernel_params.h>

namespace img_pipe {

// False when the curve would be further than power_curve_error from `words`, the power's 65536 nearest counts.
// `entries` are those that the curve gives.
bool fit_power_curve(double exponent, const std::uint16_t* words, power_curve& curve, std::uint16_t* entries);

} // namespace img_pipe
