#include "light_history.h"

#include <algorithm>
#include <cmath>

namespace auto_alg {

double light_history::take(double brightness, double product) {
    const double light = brightness / product;
    if (!(light > 0) || !std::isfinite(light)) {
        count = 0;
        return brightness;
    }
    const auto [least, most] = std::ranges::minmax_element(lights, lights + count);
    if (count > 0 && (light > *most * other_light || light * other_light < *least)) count = 0;
    if (count == light_passes) std::copy(lights + 1, lights + count--, lights);
    lights[count++] = light;

    double low = light, high = light, sum = 0;
    int direction = 0, turns = 0;
    for (int i = count - 1; i >= 0; --i) {
        const double v = lights[i];
        sum += v;
        // Of a move only its end counts: from there the light has to come back by a part of itself.
        if (direction >= 0) high = std::max(high, v);
        if (direction <= 0) low = std::min(low, v);
        const int now = direction <= 0 && v > low * turning_part    ? 1
                        : direction >= 0 && v * turning_part < high ? -1
                                                                    : 0;
        if (now == 0) continue;
        turns += direction != 0 ? 1 : 0;
        direction = now;
        (now > 0 ? high : low) = v;
    }
    return turns < flicker_turns ? brightness : sum / count * product;
}

} // namespace auto_alg
