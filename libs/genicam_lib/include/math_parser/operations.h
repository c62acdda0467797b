// The functions a program calls, by number.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace math_parser {

enum class operation : uint8_t {
    push,        // nothing but a new topmost value
    conditional, // of three values: condition, then, else
    // of two values
    power,
    shift_right,
    shift_left,
    greater_equal,
    less_equal,
    not_equal,
    logic_and,
    logic_or,
    greater,
    less,
    equal,
    remainder,
    multiply,
    divide,
    add,
    subtract,
    bit_and,
    bit_or,
    bit_xor,
    round,
    // of one value
    negate,
    complement,
    atan,
    cos,
    sin,
    tan,
    abs,
    exp,
    ln,
    lg,
    sqrt,
    trunc,
    floor,
    ceil,
    asin,
    acos,
    sgn
};

[[nodiscard]] constexpr bool is_unary(operation what) noexcept { return what >= operation::negate; }
[[nodiscard]] constexpr bool is_binary(operation what) noexcept {
    return what >= operation::power && what < operation::negate;
}

// Functions by name: all upper or all lower case, except ROUND. There is no two-argument arc tangent.
[[nodiscard]] std::optional<operation> find_unary(std::string_view name) noexcept;
[[nodiscard]] std::optional<operation> find_binary(std::string_view name) noexcept;

} // namespace math_parser
