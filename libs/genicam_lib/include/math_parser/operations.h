// The functions a program calls, by number.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace math_parser {

enum class unary : uint8_t {
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

enum class binary : uint8_t {
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
    round
};

// Functions by name: all upper or all lower case, except ROUND. There is no two-argument arc tangent.
[[nodiscard]] std::optional<unary> find_unary(std::string_view name) noexcept;
[[nodiscard]] std::optional<binary> find_binary(std::string_view name) noexcept;

} // namespace math_parser
