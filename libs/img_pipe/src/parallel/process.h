// The process that this code runs in.
#pragma once

#include <cstdint>

namespace img_pipe {

std::int64_t process_id() noexcept; // another one in a child made by fork
// From now on fork calls `before` first, and `after` at its end in parent and child. False when memory is out.
bool around_fork(void (*before)(), void (*after)()) noexcept;

} // namespace img_pipe
