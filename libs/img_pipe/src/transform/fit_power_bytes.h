#pragma once
#include <img_pipe/kernel_params.h>

namespace img_pipe {

// False when straight pieces would be further than half a byte's count from the power.
bool fit_power_bytes(double exponent, power_bytes& out);

} // namespace img_pipe
