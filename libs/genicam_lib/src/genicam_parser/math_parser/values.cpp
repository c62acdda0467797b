// Conversions between integers and floating point numbers, and how they round and saturate.
#include <math_parser/math_parser.h>

#include <cmath>
#include <limits>

namespace math_parser {

namespace {

// The doubles that bound a 64-bit integer: -2^63 is one, 2^63 is the first beyond.
constexpr double lowest_integer = -9223372036854775808.0;
constexpr double beyond_integer = 9223372036854775808.0;

int64_t saturated(double whole) noexcept {
    if (whole >= beyond_integer) return std::numeric_limits<int64_t>::max();
    if (whole < lowest_integer) return std::numeric_limits<int64_t>::min();
    return std::isnan(whole) ? 0 : static_cast<int64_t>(whole);
}

} // namespace

double half_away(double value) noexcept { return std::round(value); }

int64_t round_to_integer(double value) noexcept { return saturated(std::round(value)); }

int64_t truncate_to_integer(double value) noexcept { return saturated(value); }

} // namespace math_parser
