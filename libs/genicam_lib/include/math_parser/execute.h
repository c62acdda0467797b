// The run of a compiled program, for callers whose fetch function should be inlined; everyone else uses
// compiled_formula_data::execute. There is one function per operation and way to find its operands, so a token costs
// one call through a table; the topmost value goes from one to the next in registers.
//
// Integers stay integers through + - * / % ** and the bit operators; one double operand makes + - * / ** and the
// comparisons work on doubles. Bit operators, "%" and the digits of ROUND always work on integers.
#pragma once

#include <math_parser/math_parser.h>
#include <math_parser/operations.h>

#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <optional>
#include <utility>

namespace math_parser {

namespace detail {

[[nodiscard]] inline int64_t wrapped(uint64_t value) noexcept { return static_cast<int64_t>(value); }
[[nodiscard]] inline uint64_t raw(int64_t value) noexcept { return static_cast<uint64_t>(value); }

// The mathematical functions give doubles even for integers; only negation, complement and sign keep them.
[[nodiscard, gnu::always_inline]] inline tValue apply_unary(operation what, tValue x) noexcept {
    switch (what) {
    case operation::negate:
        return x.is_integer() ? tValue{wrapped(0 - raw(x.to_integer()))} : tValue{-x.to_double()};
    case operation::complement:
        return ~x.to_integer();
    case operation::sgn:
        if (x.is_integer()) return int64_t{(x.to_integer() > 0) - (x.to_integer() < 0)};
        // NaN is 1.0: neither below zero nor zero.
        return x.to_double() < 0.0 ? -1.0 : x.to_double() == 0.0 ? x.to_double() : 1.0;
    case operation::atan:
        return std::atan(x.to_double());
    case operation::cos:
        return std::cos(x.to_double());
    case operation::sin:
        return std::sin(x.to_double());
    case operation::tan:
        return std::tan(x.to_double());
    case operation::abs:
        return std::fabs(x.to_double());
    case operation::exp:
        return std::exp(x.to_double());
    case operation::ln:
        return std::log(x.to_double());
    case operation::lg:
        return std::log10(x.to_double());
    case operation::sqrt:
        return std::sqrt(x.to_double());
    case operation::trunc:
        return static_cast<double>(truncate_to_integer(x.to_double()));
    case operation::floor:
        return std::floor(x.to_double());
    case operation::ceil:
        return std::ceil(x.to_double());
    case operation::asin:
        return std::asin(x.to_double());
    case operation::acos:
        return std::acos(x.to_double());
    default:
        return x;
    }
}

[[nodiscard]] double round_digits(double x, int64_t digits) noexcept;
[[nodiscard]] tValue power_of(tValue left, tValue right) noexcept;

[[nodiscard]] inline bool divides(int64_t a, int64_t b) noexcept {
    return b != 0 && !(b == -1 && a == std::numeric_limits<int64_t>::min());
}

// On integers when both are, otherwise on doubles.
template <class Relation>
[[nodiscard, gnu::always_inline]] inline tValue compared(tValue left, tValue right, Relation holds) noexcept {
    return left.is_integer() && right.is_integer() ? int64_t{holds(left.to_integer(), right.to_integer())}
                                                   : int64_t{holds(left.to_double(), right.to_double())};
}

// Functions of two values. False for a division that has no integer result.
[[gnu::always_inline]] inline bool apply_binary(operation what, tValue left, tValue right, tValue& result) noexcept {
    const bool integers = left.is_integer() && right.is_integer();
    switch (what) {
    case operation::add:
        result = integers ? tValue{wrapped(raw(left.to_integer()) + raw(right.to_integer()))}
                          : tValue{left.to_double() + right.to_double()};
        return true;
    case operation::subtract:
        result = integers ? tValue{wrapped(raw(left.to_integer()) - raw(right.to_integer()))}
                          : tValue{left.to_double() - right.to_double()};
        return true;
    case operation::multiply:
        result = integers ? tValue{wrapped(raw(left.to_integer()) * raw(right.to_integer()))}
                          : tValue{left.to_double() * right.to_double()};
        return true;
    case operation::divide:
        if (!integers) {
            result = left.to_double() / right.to_double();
            return true;
        }
        if (!divides(left.to_integer(), right.to_integer())) return false;
        result = left.to_integer() / right.to_integer();
        return true;
    case operation::remainder: {
        const int64_t a = left.to_integer();
        const int64_t b = right.to_integer();
        if (!divides(a, b)) return false;
        result = a % b;
        return true;
    }
    case operation::power:
        result = power_of(left, right);
        return true;
    case operation::bit_and:
        result = left.to_integer() & right.to_integer();
        return true;
    case operation::bit_or:
        result = left.to_integer() | right.to_integer();
        return true;
    case operation::bit_xor:
        result = left.to_integer() ^ right.to_integer();
        return true;
    case operation::shift_left:
        result = wrapped(raw(left.to_integer()) << (raw(right.to_integer()) & 63));
        return true;
    case operation::shift_right:
        result = left.to_integer() >> (raw(right.to_integer()) & 63);
        return true;
    case operation::logic_and:
        result = int64_t{left.to_bool() && right.to_bool()};
        return true;
    case operation::logic_or:
        result = int64_t{left.to_bool() || right.to_bool()};
        return true;
    case operation::round:
        result = round_digits(left.to_double(), right.to_integer());
        return true;
    case operation::greater_equal:
        result = compared(left, right, std::greater_equal<>{});
        return true;
    case operation::less_equal:
        result = compared(left, right, std::less_equal<>{});
        return true;
    case operation::not_equal:
        result = compared(left, right, std::not_equal_to<>{});
        return true;
    case operation::greater:
        result = compared(left, right, std::greater<>{});
        return true;
    case operation::less:
        result = compared(left, right, std::less<>{});
        return true;
    case operation::equal:
        result = compared(left, right, std::equal_to<>{});
        return true;
    default:
        return true;
    }
}

[[nodiscard]] inline std::unexpected<execution_error> failed(GenICam::genicam_errc code, const char* text) {
    return std::unexpected<execution_error>{{make_error_code(code), text}};
}

[[nodiscard]] inline std::unexpected<execution_error> fetch_failed(std::error_code error) {
    return std::unexpected<execution_error>{{error, "Failed to look up variable name."}};
}

[[nodiscard]] inline std::unexpected<execution_error> lacks_values(operation what) {
    return failed(GenICam::genicam_errc::bad_formula, is_unary(what) ? "Failed to get 1 parameter for unary function."
                                                      : is_binary(what)
                                                          ? "Failed to get 2 parameters for binary function."
                                                          : "Failed to get 3 parameters for condition operator.");
}

[[nodiscard]] inline std::unexpected<execution_error> no_quotient() {
    return failed(GenICam::genicam_errc::bad_formula, "Integer division without a result.");
}

// What a run needs beside the topmost value.
template <class Fetch>
struct machine {
    using token = compiled_formula_data::token;

    Fetch& fetch;
    tValue* below;     // beyond the second value of the stack; the first push stores the empty top there
    const token* stop; // the run ends before this
    std::optional<execution_error> error{};

    void push(tValue top) noexcept { *below++ = top; }
    void fail(const token& at, const std::unexpected<execution_error>& reason) noexcept {
        error = reason.error();
        stop = &at + 1;
    }
    [[nodiscard]] bool fetch_into(tValue& value, int64_t id, const token& at) {
        const auto fetched = fetch(static_cast<uint64_t>(id));
        if (!fetched) [[unlikely]] {
            fail(at, fetch_failed(fetched.error()));
            return false;
        }
        value = *fetched;
        return true;
    }
};

// One token, for one way to find its operands. The result is the new topmost value.
template <class Fetch, operation what, compiled_formula_data::operands from>
tValue step(machine<Fetch>& run, const compiled_formula_data::token& at, tValue topmost) {
    using enum compiled_formula_data::operands;
    // NOLINTBEGIN(misc-const-correctness): which of the two changes depends on where the operands come from
    tValue left = topmost;
    tValue right = topmost;
    // NOLINTEND(misc-const-correctness)
    if constexpr (from == top_two) left = *--run.below;
    if constexpr (from >= constant) run.push(topmost);
    if constexpr (from == variable_constant || from == variable_variable) {
        if (!run.fetch_into(left, at.left_variable, at)) [[unlikely]]
            return topmost;
    }
    if constexpr (from == top_constant || from == constant || from == variable_constant) right = at.constant();
    if constexpr (from == top_variable || from == variable || from == variable_variable) {
        if (!run.fetch_into(right, at.payload, at)) [[unlikely]]
            return topmost;
    }

    if constexpr (what == operation::push) {
        return right;
    } else if constexpr (what == operation::conditional) {
        return (--run.below)->to_bool() ? left : right;
    } else if constexpr (is_unary(what)) {
        return apply_unary(what, right);
    } else {
        tValue result;
        if (!apply_binary(what, left, right, result)) [[unlikely]]
            run.fail(at, no_quotient());
        return result;
    }
}

[[nodiscard]] constexpr bool is_possible(operation what, compiled_formula_data::operands from) noexcept {
    using enum compiled_formula_data::operands;
    if (what == operation::push) return from == constant || from == variable;
    if (is_unary(what)) return from == top || from == variable;
    return from != top && from != constant && from != variable;
}

// The steps, by operation and operands.
template <class Fetch>
struct steps {
    using function = tValue (*)(machine<Fetch>&, const compiled_formula_data::token&, tValue);
    static constexpr std::size_t ways = 8; // kinds of operands
    static constexpr std::size_t count = (static_cast<std::size_t>(operation::sgn) + 1) * ways;

    template <std::size_t index>
    static constexpr function at() {
        constexpr auto what = static_cast<operation>(index / ways);
        constexpr auto from = static_cast<compiled_formula_data::operands>(index % ways);
        if constexpr (is_possible(what, from)) return step<Fetch, what, from>;
        return nullptr;
    }
    static constexpr auto table = []<std::size_t... index>(std::index_sequence<index...>) {
        return std::array<function, count>{at<index>()...};
    }
    (std::make_index_sequence<count>{});

    [[nodiscard]] static function of(const compiled_formula_data::token& next) noexcept {
        return table[static_cast<std::size_t>(next.what) * ways + static_cast<std::size_t>(next.from)];
    }
};

template <class Fetch>
[[nodiscard]] std::expected<tValue, execution_error> run(const compiled_formula_data& program, Fetch& fetch,
                                                         tValue* stack) {
    machine<Fetch> state{fetch, stack, program.first_lacking()};
    tValue top;
    for (const auto* next = program.begin(); next != state.stop; ++next)
        top = steps<Fetch>::of(*next)(state, *next, top);
    if (state.error) [[unlikely]]
        return std::unexpected{*state.error};
    if (state.stop != program.end()) [[unlikely]]
        return lacks_values(state.stop->what);
    return top;
}

constexpr uint32_t inline_depth = 20;

// Uninitialised until pushed.
union value_storage {
    value_storage() noexcept {}
    tValue values[inline_depth];
};

template <class Fetch>
[[gnu::noinline]] std::expected<tValue, execution_error> execute_deep(const compiled_formula_data& program,
                                                                      Fetch& fetch) {
    std::vector<tValue> stack(program.stack_depth());
    return run(program, fetch, stack.data());
}

} // namespace detail

// As compiled_formula_data::execute.
template <class Fetch>
requires std::is_invocable_r_v<GenICam::result<tValue>, Fetch&, uint64_t> [[nodiscard]] std::expected<tValue,
                                                                                                      execution_error>
execute(const compiled_formula_data& program, Fetch&& fetch) {
    if (program.empty()) [[unlikely]]
        return detail::failed(GenICam::genicam_errc::not_implemented, "");
    if (program.stack_depth() > detail::inline_depth) [[unlikely]]
        return detail::execute_deep(program, fetch);
    detail::value_storage stack;
    return detail::run(program, fetch, stack.values);
}

} // namespace math_parser
