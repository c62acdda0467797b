// The course of a measured value from frame to frame: a median, then a fifth of the way to it with each.
#include <img_pipe/tonemapping.h>

#include <algorithm>
#include <cmath>

namespace img_pipe {

float smooth(float value, tonemap_filter& filter) {
    if (!std::isfinite(value)) return filter.value;
    const bool first = filter.count == 0;
    float pushed = value;
    if (filter.count < tonemap_filter::places) {
        filter.history[filter.count++] = value;
    } else {
        filter.history[filter.oldest] = value;
        filter.oldest = (filter.oldest + 1) % tonemap_filter::places;
        float sorted[tonemap_filter::places];
        std::ranges::copy(filter.history, sorted);
        float* const middle = sorted + tonemap_filter::places / 2;
        std::nth_element(sorted, middle, sorted + tonemap_filter::places);
        pushed = *middle;
    }
    filter.value = first ? value : filter.value + (pushed - filter.value) / 5;
    return filter.value;
}

} // namespace img_pipe
