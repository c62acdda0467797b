// Pixel formats by their numbers in the standard's naming convention, where orv-gentl treats some apart.
#pragma once

#include <cstdint>

namespace cli {

constexpr uint32_t rgb8 = 0x02180014, bgr8 = 0x02180015, rgba8 = 0x02200016, bgra8 = 0x02200017;

} // namespace cli
