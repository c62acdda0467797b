// What the system call before it said.
#pragma once

#include <cerrno>
#include <system_error>

namespace gige {

inline std::error_code last_error() { return {errno, std::system_category()}; }

} // namespace gige
