// To expect an error, or none, of what has one of them.
#pragma once

#include <system_error>

namespace test_support {

template <class Result>
std::error_code error_of(const Result& result) {
    return result ? std::error_code{} : result.error();
}

} // namespace test_support
