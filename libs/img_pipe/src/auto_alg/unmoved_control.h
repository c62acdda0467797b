// A control that was asked for a value and stayed where it was: its camera rounds to steps, refuses, or has the feature
// locked. It counts as at rest, or it would be asked for the same with every pass and the others never have their turn.
#pragma once
#include "choices.h"

#include <cmath>
#include <cstdint>

namespace auto_alg {

class unmoved_control {
public:
    // Whether to leave the control at `current`. Now and then it is asked all the same: what the camera takes may
    // depend on something else that has changed since.
    [[nodiscard]] bool stays(double current, double wanted) {
        return passes >= unmoved_passes && is_asked(current, wanted) && ++spared % (spared_passes + 1) != 0;
    }
    void ask(double current, double wanted) {
        if (!is_asked(current, wanted)) *this = {current, wanted, 0, 0};
        ++passes;
    }

    double from = 0, asked = 0; // equal: nothing was asked
    std::uint32_t passes = 0;   // that asked from there, the first included
    std::uint32_t spared = 0;

private:
    // More than twice as far is another question: a step of the camera's may be that large.
    [[nodiscard]] bool is_asked(double current, double wanted) const {
        const double way = wanted - current, before = asked - from;
        return current == from && way * before > 0 && std::abs(way) <= 2 * std::abs(before);
    }
};

} // namespace auto_alg
