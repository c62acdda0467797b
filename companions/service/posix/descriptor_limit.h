// How many descriptors this process may open.
#pragma once

#include <cstddef>

namespace service {

// Raises the limit to this many, as far as this process may; what it is then.
std::size_t raise_descriptor_limit(std::size_t wanted);

} // namespace service
