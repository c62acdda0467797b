// The process that this code runs in.
#pragma once

#include <cstdint>

namespace img_pipe {

std::int64_t process_id() noexcept; // another one in a child made by fork

} // namespace img_pipe
