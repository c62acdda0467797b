// The run of a compiled program on a stack of values.
//
// Integers stay integers through + - * / % ** and the bit operators; one double operand makes + - * / ** and the
// comparisons work on doubles. Bit operators, "%" and the digits of ROUND always work on integers.
#include "operations.h"

#include <math_parser/math_parser.h>

#include <cmath>
#include <limits>

namespace math_parser {

namespace {

using GenICam::genicam_errc;

int64_t wrapped(uint64_t value) noexcept { return static_cast<int64_t>(value); }
uint64_t raw(int64_t value) noexcept { return static_cast<uint64_t>(value); }

double real_of(unary operation, double x) noexcept {
    switch (operation) {
    case unary::atan:
        return std::atan(x);
    case unary::cos:
        return std::cos(x);
    case unary::sin:
        return std::sin(x);
    case unary::tan:
        return std::tan(x);
    case unary::abs:
        return std::fabs(x);
    case unary::exp:
        return std::exp(x);
    case unary::ln:
        return std::log(x);
    case unary::lg:
        return std::log10(x);
    case unary::sqrt:
        return std::sqrt(x);
    case unary::trunc:
        return static_cast<double>(truncate_to_integer(x));
    case unary::floor:
        return std::floor(x);
    case unary::ceil:
        return std::ceil(x);
    case unary::asin:
        return std::asin(x);
    case unary::acos:
        return std::acos(x);
    case unary::negate:
    case unary::complement:
    case unary::sgn:
        break;
    }
    return x;
}

// The mathematical functions give doubles even for integers; only negation, complement and sign keep them.
tValue apply(unary operation, tValue x) noexcept {
    switch (operation) {
    case unary::negate:
        return x.is_integer() ? tValue{wrapped(0 - raw(x.to_integer()))} : tValue{-x.to_double()};
    case unary::complement:
        return ~x.to_integer();
    case unary::sgn:
        if (x.is_integer()) return int64_t{(x.to_integer() > 0) - (x.to_integer() < 0)};
        // NaN is 1.0: neither below zero nor zero.
        return x.to_double() < 0.0 ? -1.0 : x.to_double() == 0.0 ? x.to_double() : 1.0;
    default:
        return real_of(operation, x.to_double());
    }
}

double round_digits(double x, int64_t digits) noexcept {
    if (digits == 0) return half_away(x);
    const double p = std::pow(10.0, static_cast<double>(digits));
    return half_away(x * p) / p;
}

bool divides(int64_t a, int64_t b) noexcept { return b != 0 && !(b == -1 && a == std::numeric_limits<int64_t>::min()); }

template <class T>
int64_t compared(binary operation, T a, T b) noexcept {
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

// False for a division that has no integer result.
bool apply(binary operation, tValue& left, const tValue& right) noexcept {
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
    case binary::power: {
        const double power = std::pow(left.to_double(), right.to_double());
        left = integers ? tValue{truncate_to_integer(power)} : tValue{power};
        return true;
    }
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

struct function_name {
    std::string_view upper;
    std::string_view lower;
    unary operation;
};

constexpr function_name unary_functions[] = {
    {"ATAN", "atan", unary::atan},    {"COS", "cos", unary::cos},       {"SIN", "sin", unary::sin},
    {"TAN", "tan", unary::tan},       {"ABS", "abs", unary::abs},       {"EXP", "exp", unary::exp},
    {"LN", "ln", unary::ln},          {"LG", "lg", unary::lg},          {"SQRT", "sqrt", unary::sqrt},
    {"TRUNC", "trunc", unary::trunc}, {"FLOOR", "floor", unary::floor}, {"CEIL", "ceil", unary::ceil},
    {"ASIN", "asin", unary::asin},    {"ACOS", "acos", unary::acos},    {"SGN", "sgn", unary::sgn},
    {"NEG", "neg", unary::negate},
};

std::unexpected<execution_error> failed(genicam_errc code, const char* text) {
    return std::unexpected<execution_error>{{make_error_code(code), text}};
}

// Uninitialised until pushed.
union value_storage {
    value_storage() noexcept {}
    tValue values[20];
};

} // namespace

std::optional<unary> find_unary(std::string_view name) noexcept {
    for (const function_name& function : unary_functions) {
        if (name == function.upper || name == function.lower) return function.operation;
    }
    return std::nullopt;
}

std::optional<binary> find_binary(std::string_view name) noexcept {
    if (name == "ROUND") return binary::round;
    return std::nullopt;
}

std::expected<tValue, execution_error> compiled_formula_data::execute(fetch_func_ref fetch) const {
    if (empty()) return failed(genicam_errc::not_implemented, "");
    value_storage local_stack;
    std::vector<tValue> large_stack;
    tValue* const bottom = [&] {
        if (depth <= std::size(local_stack.values)) return local_stack.values;
        large_stack.resize(depth);
        return large_stack.data();
    }();
    tValue* top = bottom; // one beyond the last value

    for (const token& next : *this) {
        switch (next.what) {
        case kind::integer:
            *top++ = tValue{next.payload};
            break;
        case kind::real:
            *top++ = tValue{std::bit_cast<double>(next.payload)};
            break;
        case kind::variable: {
            tValue value;
            if (const std::error_code error = fetch(static_cast<uint64_t>(next.payload), value))
                return std::unexpected<execution_error>{{error, "Failed to look up variable name."}};
            *top++ = value;
            break;
        }
        case kind::unary:
            if (top == bottom)
                return failed(genicam_errc::bad_formula, "Failed to get 1 parameter for unary function.");
            top[-1] = apply(static_cast<unary>(next.operation), top[-1]);
            break;
        case kind::binary:
            if (top - bottom < 2)
                return failed(genicam_errc::bad_formula, "Failed to get 2 parameters for binary function.");
            --top;
            if (!apply(static_cast<binary>(next.operation), top[-1], *top))
                return failed(genicam_errc::bad_formula, "Integer division without a result.");
            break;
        case kind::conditional:
            if (top - bottom < 3)
                return failed(genicam_errc::bad_formula, "Failed to get 3 parameters for condition operator.");
            top -= 2;
            top[-1] = top[-1].to_bool() ? top[0] : top[1];
            break;
        }
    }
    if (top == bottom) return failed(genicam_errc::bad_formula, "Unbalanced calc stack.");
    return top[-1];
}

} // namespace math_parser
