// The run of a compiled program on a stack of values, for callers whose fetch function should be inlined; everyone else
// uses compiled_formula_data::execute.
//
// Integers stay integers through + - * / % ** and the bit operators; one double operand makes + - * / ** and the
// comparisons work on doubles. Bit operators, "%" and the digits of ROUND always work on integers.
#pragma once

#include <math_parser/math_parser.h>
#include <math_parser/operations.h>

#include <limits>

namespace math_parser {

namespace detail {

[[nodiscard]] inline int64_t wrapped(uint64_t value) noexcept { return static_cast<int64_t>(value); }
[[nodiscard]] inline uint64_t raw(int64_t value) noexcept { return static_cast<uint64_t>(value); }

// The less frequent functions.
[[nodiscard]] tValue apply(unary operation, tValue x) noexcept;
[[nodiscard]] double round_digits(double x, int64_t digits) noexcept;
[[nodiscard]] tValue power_of(tValue left, tValue right) noexcept;

[[nodiscard]] inline bool divides(int64_t a, int64_t b) noexcept {
    return b != 0 && !(b == -1 && a == std::numeric_limits<int64_t>::min());
}

template <class T>
[[nodiscard]] int64_t compared(binary operation, T a, T b) noexcept {
    switch (operation) {
    case binary::greater_equal:
        return a >= b;
    case binary::less_equal:
        return a <= b;
    case binary::not_equal:
        return a != b;
    case binary::greater:
        return a > b;
    case binary::less:
        return a < b;
    default:
        return a == b;
    }
}

// False for a division that has no integer result. Inlined into the loop, so that the values stay in registers.
[[gnu::always_inline]] inline bool apply(binary operation, tValue& left, const tValue& right) noexcept {
    const bool integers = left.is_integer() && right.is_integer();
    switch (operation) {
    case binary::add:
        left = integers ? tValue{wrapped(raw(left.to_integer()) + raw(right.to_integer()))}
                        : tValue{left.to_double() + right.to_double()};
        return true;
    case binary::subtract:
        left = integers ? tValue{wrapped(raw(left.to_integer()) - raw(right.to_integer()))}
                        : tValue{left.to_double() - right.to_double()};
        return true;
    case binary::multiply:
        left = integers ? tValue{wrapped(raw(left.to_integer()) * raw(right.to_integer()))}
                        : tValue{left.to_double() * right.to_double()};
        return true;
    case binary::divide:
        if (!integers) {
            left = left.to_double() / right.to_double();
            return true;
        }
        if (!divides(left.to_integer(), right.to_integer())) return false;
        left = left.to_integer() / right.to_integer();
        return true;
    case binary::remainder: {
        const int64_t a = left.to_integer();
        const int64_t b = right.to_integer();
        if (!divides(a, b)) return false;
        left = a % b;
        return true;
    }
    case binary::power:
        left = power_of(left, right);
        return true;
    case binary::bit_and:
        left = left.to_integer() & right.to_integer();
        return true;
    case binary::bit_or:
        left = left.to_integer() | right.to_integer();
        return true;
    case binary::bit_xor:
        left = left.to_integer() ^ right.to_integer();
        return true;
    case binary::shift_left:
        left = wrapped(raw(left.to_integer()) << (raw(right.to_integer()) & 63));
        return true;
    case binary::shift_right:
        left = left.to_integer() >> (raw(right.to_integer()) & 63);
        return true;
    case binary::logic_and:
        left = int64_t{left.to_bool() && right.to_bool()};
        return true;
    case binary::logic_or:
        left = int64_t{left.to_bool() || right.to_bool()};
        return true;
    case binary::round:
        left = round_digits(left.to_double(), right.to_integer());
        return true;
    case binary::greater_equal:
    case binary::less_equal:
    case binary::not_equal:
    case binary::greater:
    case binary::less:
    case binary::equal:
        left = integers ? compared(operation, left.to_integer(), right.to_integer())
                        : compared(operation, left.to_double(), right.to_double());
        return true;
    }
    return true;
}

[[nodiscard]] inline std::unexpected<execution_error> failed(GenICam::genicam_errc code, const char* text) {
    return std::unexpected<execution_error>{{make_error_code(code), text}};
}

[[nodiscard]] inline std::unexpected<execution_error> fetch_failed(std::error_code error) {
    return std::unexpected<execution_error>{{error, "Failed to look up variable name."}};
}

[[nodiscard]] inline std::unexpected<execution_error> lacks_two() {
    return failed(GenICam::genicam_errc::bad_formula, "Failed to get 2 parameters for binary function.");
}

[[nodiscard]] inline std::unexpected<execution_error> no_quotient() {
    return failed(GenICam::genicam_errc::bad_formula, "Integer division without a result.");
}

constexpr uint32_t inline_depth = 20;

// Uninitialised until pushed.
union value_storage {
    value_storage() noexcept {}
    tValue values[inline_depth];
};

// The topmost value is kept apart from the others, so that a chain of functions with constants and variables on their
// right never touches the stack. `below` points beyond the second value.
template <bool checked, class Fetch>
[[nodiscard]] std::expected<tValue, execution_error> run(const compiled_formula_data& program, Fetch& fetch,
                                                         tValue* const stack) {
    tValue top;
    tValue* below = stack; // the first push stores the empty top there: the stack holds below - stack values
    const auto lacks = [&](std::ptrdiff_t values) { return checked && below - stack < values; };

    for (const auto *next = program.begin(), *const stop = program.end(); next != stop; ++next) {
        tValue right;
        switch (next->what) {
        case compiled_formula_data::kind::integer:
            *below++ = top;
            top = tValue{next->payload};
            continue;
        case compiled_formula_data::kind::real:
            *below++ = top;
            top = tValue{std::bit_cast<double>(next->payload)};
            continue;
        case compiled_formula_data::kind::variable:
            *below++ = top;
            if (const auto value = fetch(static_cast<uint64_t>(next->payload))) [[likely]] {
                top = *value;
            } else {
                return fetch_failed(value.error());
            }
            continue;
        case compiled_formula_data::kind::unary:
            if (lacks(1))
                return failed(GenICam::genicam_errc::bad_formula, "Failed to get 1 parameter for unary function.");
            top = apply(static_cast<unary>(next->operation), top);
            continue;
        case compiled_formula_data::kind::conditional:
            if (lacks(3))
                return failed(GenICam::genicam_errc::bad_formula, "Failed to get 3 parameters for condition operator.");
            below -= 2;
            if (below[0].to_bool()) top = below[1];
            continue;
        // The binary functions differ in where the right side comes from.
        case compiled_formula_data::kind::binary:
            if (lacks(2)) return lacks_two();
            right = top;
            top = *--below;
            break;
        case compiled_formula_data::kind::binary_integer:
            right = tValue{next->payload};
            break;
        case compiled_formula_data::kind::binary_real:
            right = tValue{std::bit_cast<double>(next->payload)};
            break;
        case compiled_formula_data::kind::binary_variable:
            if (const auto value = fetch(static_cast<uint64_t>(next->payload))) [[likely]] {
                right = *value;
            } else {
                return fetch_failed(value.error());
            }
            break;
        }
        if (lacks(1)) return lacks_two();
        if (!apply(static_cast<binary>(next->operation), top, right)) [[unlikely]]
            return no_quotient();
    }
    if (lacks(1)) return failed(GenICam::genicam_errc::bad_formula, "Unbalanced calc stack.");
    return top;
}

// Deep stacks, empty programs and those that take more than there is.
template <class Fetch>
[[gnu::noinline]] std::expected<tValue, execution_error> execute_unusual(const compiled_formula_data& program,
                                                                         Fetch& fetch) {
    if (program.empty()) return failed(GenICam::genicam_errc::not_implemented, "");
    std::vector<tValue> stack(program.stack_depth() + 1);
    return run<true>(program, fetch, stack.data());
}

} // namespace detail

// As compiled_formula_data::execute.
template <class Fetch>
requires std::is_invocable_r_v<GenICam::result<tValue>, Fetch&, uint64_t> [[nodiscard]] std::expected<tValue,
                                                                                                      execution_error>
execute(const compiled_formula_data& program, Fetch&& fetch) {
    if (program.is_balanced() && !program.empty() && program.stack_depth() <= detail::inline_depth) [[likely]] {
        detail::value_storage stack;
        return detail::run<false>(program, fetch, stack.values);
    }
    return detail::execute_unusual(program, fetch);
}

} // namespace math_parser
