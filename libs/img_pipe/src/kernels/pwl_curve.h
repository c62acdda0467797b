// The curve of companded images: 12-bit codes whose linear values have 20 bits. Cameras do not tell their knees; here
// they are at codes 1024, 2048 and 3072, with slopes of 1, 16, 128 and what is left.
#pragma once
#include <cstdint>

namespace img_pipe {
namespace {

constexpr std::int32_t pwl_white = 1048575;

[[maybe_unused]] float linear_of(std::int32_t code) {
    struct knee {
        std::int32_t code, value;
    };
    constexpr knee knees[] = {{0, 0}, {1024, 1024}, {2048, 17408}, {3072, 148480}, {4095, pwl_white}};
    int i = 0;
    while (i < 3 && code >= knees[i + 1].code) ++i;
    const std::int64_t rise = knees[i + 1].value - knees[i].value, run = knees[i + 1].code - knees[i].code;
    const std::int64_t times_run = knees[i].value * run + rise * (code - knees[i].code);
    return static_cast<float>(static_cast<double>(times_run) / static_cast<double>(run * pwl_white));
}

} // namespace
} // namespace img_pipe
