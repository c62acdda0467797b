#include <math_parser/execute.h>

#include <cmath>

namespace math_parser {

namespace {

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

} // namespace

namespace detail {

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
    case unary::atan:
        return std::atan(x.to_double());
    case unary::cos:
        return std::cos(x.to_double());
    case unary::sin:
        return std::sin(x.to_double());
    case unary::tan:
        return std::tan(x.to_double());
    case unary::abs:
        return std::fabs(x.to_double());
    case unary::exp:
        return std::exp(x.to_double());
    case unary::ln:
        return std::log(x.to_double());
    case unary::lg:
        return std::log10(x.to_double());
    case unary::sqrt:
        return std::sqrt(x.to_double());
    case unary::trunc:
        return static_cast<double>(truncate_to_integer(x.to_double()));
    case unary::floor:
        return std::floor(x.to_double());
    case unary::ceil:
        return std::ceil(x.to_double());
    case unary::asin:
        return std::asin(x.to_double());
    case unary::acos:
        return std::acos(x.to_double());
    }
    return x;
}

double round_digits(double x, int64_t digits) noexcept {
    if (digits == 0) return half_away(x);
    const double p = std::pow(10.0, static_cast<double>(digits));
    return half_away(x * p) / p;
}

tValue power_of(tValue left, tValue right) noexcept {
    const double power = std::pow(left.to_double(), right.to_double());
    return left.is_integer() && right.is_integer() ? tValue{truncate_to_integer(power)} : tValue{power};
}

} // namespace detail

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
    return math_parser::execute(*this, fetch);
}

} // namespace math_parser
