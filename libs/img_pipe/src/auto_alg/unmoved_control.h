// A control that was asked for a value and stayed where it was: its camera rounds to steps, refuses, or has the feature
// locked. It counts as at rest, or it would be asked for the same with every pass and the others never have their turn.
// What was not answered yet did not stay: a service that is late would let gain do the work of the exposure.
#pragma once
#include "choices.h"

#include <cmath>
#include <cstdint>
#include <utility>

namespace auto_alg {

class unmoved_control {
public:
    // Whether to leave the control at `current`. Now and then it is asked all the same: what the camera takes may
    // depend on something else that has changed since.
    // `answered`: what was asked last has been brought to the camera.
    [[nodiscard]] bool stays(double current, double wanted, bool answered, std::uint64_t now_ns) {
        if (!is_asked(current, wanted)) return false;
        if (answered && !std::exchange(is_counted, true)) {
            ++answers;
            since_ns = now_ns;
            passes = 0;
        }
        // Of times that stand still or go back the passes are counted.
        const bool overdue = now_ns >= since_ns + unanswered_ns || now_ns < since_ns || passes >= unanswered_passes;
        if (answers < unmoved_passes && !(overdue && passes >= unmoved_passes)) return false;
        return ++spared % (spared_passes + 1) != 0;
    }
    void ask(double current, double wanted, std::uint64_t now_ns) {
        if (!is_asked(current, wanted)) *this = {.from = current, .asked = wanted, .since_ns = now_ns};
        ++passes;
        is_counted = false;
    }

    double from = 0, asked = 0; // equal: nothing was asked
    std::uint64_t since_ns = 0; // when it was asked from there first, or the last answer came
    std::uint32_t passes = 0;   // that asked since
    std::uint32_t answers = 0;
    bool is_counted = false; // the last one's
    std::uint32_t spared = 0;

private:
    // More than twice as far is another question: a step of the camera's may be that large.
    [[nodiscard]] bool is_asked(double current, double wanted) const {
        const double way = wanted - current, before = asked - from;
        return current == from && way * before > 0 && std::abs(way) <= 2 * std::abs(before);
    }
};

} // namespace auto_alg
