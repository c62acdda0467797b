// How the light changes from pass to pass, so that a lamp's flicker is told from a light that becomes another one.
#pragma once
#include "choices.h"

namespace auto_alg {

class light_history {
public:
    // A pass's brightness, and what it was taken with: the product of exposure, gain and iris, above 0. Gives the
    // brightness to act upon: that of the pass or, while the light goes up and down, the mean light's with this
    // product.
    double take(double brightness, double product);

private:
    double lights[light_passes] = {}; // brightness over product, oldest first
    int count = 0;
};

} // namespace auto_alg
