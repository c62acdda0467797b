// Conversions and changes in place, with formats, sizes, strides, parameters and faults of the views from the input.
#pragma once

#include <cstddef>
#include <span>

namespace fuzz {

// On every level of this processor; ends the process where levels differ, or where a byte changes that must not.
void exercise_transform(std::span<const std::byte> input);

} // namespace fuzz
