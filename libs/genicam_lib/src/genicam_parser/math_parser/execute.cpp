#include <math_parser/execute.h>

#include <cmath>

namespace math_parser {

namespace {

struct function_name {
    std::string_view upper;
    std::string_view lower;
    operation what;
};

constexpr function_name unary_functions[] = {
    {"ATAN", "atan", operation::atan},    {"COS", "cos", operation::cos},       {"SIN", "sin", operation::sin},
    {"TAN", "tan", operation::tan},       {"ABS", "abs", operation::abs},       {"EXP", "exp", operation::exp},
    {"LN", "ln", operation::ln},          {"LG", "lg", operation::lg},          {"SQRT", "sqrt", operation::sqrt},
    {"TRUNC", "trunc", operation::trunc}, {"FLOOR", "floor", operation::floor}, {"CEIL", "ceil", operation::ceil},
    {"ASIN", "asin", operation::asin},    {"ACOS", "acos", operation::acos},    {"SGN", "sgn", operation::sgn},
    {"NEG", "neg", operation::negate},
};

} // namespace

namespace detail {

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

std::optional<operation> find_unary(std::string_view name) noexcept {
    for (const function_name& function : unary_functions) {
        if (name == function.upper || name == function.lower) return function.what;
    }
    return std::nullopt;
}

std::optional<operation> find_binary(std::string_view name) noexcept {
    if (name == "ROUND") return operation::round;
    return std::nullopt;
}

std::expected<tValue, execution_error> compiled_formula_data::execute(fetch_func_ref fetch) const {
    return math_parser::execute(*this, fetch);
}

} // namespace math_parser
