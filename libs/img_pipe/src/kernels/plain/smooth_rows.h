// Means of neighbouring samples, sample by sample on [x, n).
#pragma once
#include "../rows.h"

namespace img_pipe {
namespace {

// out[x] = mean of x and x + 1 of both lines, halves up; reads sample n.
[[maybe_unused]] void mean_2x2(const std::uint8_t* upper, const std::uint8_t* lower, std::int32_t x, std::int32_t n,
                               std::uint8_t* out) {
    for (; x < n; ++x) out[x] = static_cast<std::uint8_t>((upper[x] + upper[x + 1] + lower[x] + lower[x + 1] + 2) >> 2);
}

} // namespace
} // namespace img_pipe
