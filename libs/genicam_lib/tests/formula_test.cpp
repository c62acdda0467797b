// The formula engine: what compiles, what it gives, and as which kind of number.
#include <math_parser/math_parser.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace math_parser {

namespace {

using GenICam::genicam_errc;

constexpr int64_t lowest = std::numeric_limits<int64_t>::min();
constexpr int64_t highest = std::numeric_limits<int64_t>::max();

// X is 7, Y is 2.5, BAD fails to fetch, FOUR is the constant 4, SUM the formula X + 1, NONE an empty formula.
std::optional<lookup_func_result_t> lookup(std::string_view name) {
    if (name == "X") return uint64_t{1};
    if (name == "Y") return uint64_t{2};
    if (name == "BAD") return uint64_t{3};
    if (name == "FOUR") return tValue{int64_t{4}};
    if (name == "SUM") {
        static const auto sum = compile_formula("X + 1", lookup).value();
        return &sum;
    }
    if (name == "NONE") {
        static const auto none = compile_formula("", {}).value();
        return &none;
    }
    return std::nullopt;
}

GenICam::result<tValue> fetch(uint64_t id) {
    if (id == 3) return GenICam::fail(genicam_errc::timeout);
    return id == 1 ? tValue{int64_t{7}} : tValue{2.5};
}

std::expected<tValue, execution_error> run(std::string_view text) {
    const auto program = compile_formula(text, lookup);
    if (!program) return std::unexpected<execution_error>{{program.error(), "compile"}};
    auto f = fetch;
    return program->execute(f);
}

// An integer where the value is written without a point.
const std::vector<std::string> results = {
    // Arithmetic.
    "7 / 2 -> 3", "7 / 2.0 -> 3.5", "-7 / 2 -> -3", "-7 % 3 -> -1", "7.6 % 3 -> 2", "2 ** -1 -> 0", "2.0 ** -1 -> 0.5",
    "2 ** 3 -> 8", "1.0 / 0 -> inf", "0x7FFFFFFFFFFFFFFF + 1 -> -9223372036854775808",
    "-9223372036854775808 -> -9223372036854775808", "1 - 2 -> -1", "3 * 1.5 -> 4.5", "0xFFFFFFFFFFFFFFFF -> -1",
    "10 ** 30 -> 9223372036854775807",
    // The precedence of this language, not that of C.
    "1 + 2 * 3 -> 7", "1 = 1 + 0 -> 1", "2 ** 3 ** 2 -> 64", "2 * 3 ** 2 -> 36", "2 = 1 && 1 = 1 -> 0",
    "1 = 1 && 2 = 2 -> 0", "3 & 1 = 1 -> 1", "1 | 2 + 1 -> 3", "1 << 1 + 1 -> 4", "10 - 4 - 3 -> 3", "-2 ** 2 -> 4",
    "~1 + 1 -> -1", "0 ? 1 : 0 ? 2 : 3 -> 3", "1 ? 2 : 3 + 10 -> 2", "0 && 0 || 1 -> 1",
    // Bits and comparisons.
    "5.5 & 3 -> 2", "-1 >> 1 -> -1", "1 << 64 -> 1", "1 << 65 -> 2", "6 ^ 3 -> 5", "~0 -> -1", "~2.5 -> -4",
    "1.5 > 1 -> 1", "2 >= 2 -> 1", "2 <> 2 -> 0", "2 <= 1 -> 0", "0.0 / 0.0 = 0.0 / 0.0 -> 0", "(0.0 / 0.0) <> 1 -> 1",
    "(0.0 / 0.0) < 1 -> 0", "(0.0 / 0.0) && 1 -> 1", "0.5 || 0 -> 1", "0.0 || 0 -> 0", "0.1 ? 5 : 6 -> 5",
    // Functions.
    "FLOOR(2) -> 2.0", "ABS(-3) -> 3.0", "sqrt(16) -> 4.0", "TRUNC(-2.7) -> -2.0", "CEIL(2.1) -> 3.0",
    "LG(1000) -> 3.0", "LN(1) -> 0.0", "exp(0) -> 1.0", "NEG(3) -> -3", "NEG(1.5) -> -1.5", "SGN(-3) -> -1",
    "SGN(0) -> 0", "SGN(-0.5) -> -1.0", "SGN(0.0) -> 0.0", "SGN(0.0/0.0) -> 1.0", "ROUND(2.5, 0) -> 3.0",
    "ROUND(-2.5, 0) -> -3.0", "ROUND(2.45, 1) -> 2.5", "ROUND(1234, 0 - 2) -> 1200.0", "ROUND(-2.4, 0) -> -2.0",
    "SIN(0) -> 0.0", "cos(0) -> 1.0", "ASIN(2) -> nan", "PI -> 3.141592653589793", "E -> 2.718281828459045",
    "ATAN ( 0 ) -> 0.0",
    // Names.
    "X -> 7", "X / 2 -> 3", "Y * 2 -> 5.0", "FOUR + X -> 11", "SUM * 2 -> 16", " \t\nX\r\n+ 1 -> 8",
    // Whatever follows a complete expression is ignored, and an operator at the end does nothing.
    "1 2 -> 1", "1) -> 1", "1 + -> 1", "1 ? 2 -> 2", "2 * (3 + -> 3", "1e -> 1.0", "2. -> 2.0", "1.5e2 -> 150.0",
    "1E+2 -> 100.0", "0x1e -> 30"};

TEST(Formula, ValuesAreExact) {
    for (const std::string& row : results) {
        SCOPED_TRACE(row);
        const auto arrow = row.rfind(" -> ");
        const auto value = run(row.substr(0, arrow));
        ASSERT_TRUE(value) << value.error().text;
        const std::string expected = row.substr(arrow + 4);
        const bool is_integer = expected.find_first_of(".n") == expected.npos; // n: of inf and nan
        EXPECT_EQ(value->is_integer(), is_integer);
        const double real = std::strtod(expected.c_str(), nullptr);
        if (is_integer) {
            EXPECT_EQ(value->to_integer(), std::stoll(expected));
        } else if (std::isnan(real)) {
            EXPECT_TRUE(std::isnan(value->to_double()));
        } else {
            EXPECT_EQ(value->to_double(), real);
        }
    }
}

TEST(Formula, WhatIsNoneIsReported) {
    using enum parse_status;
    const std::pair<parse_status, std::vector<std::string>> rows[] = {
        {end_of_text, {"", "1 +", "1 ? 2"}},
        {success, {"1"}},
        {invalid_token, {"#", "1 #", "(1 #", "1e999", "99999999999999999999999"}},
        {unknown_variable, {"Z", "x", ".5"}},
        {unknown_function, {"FOO(1)", "round(2,1)", "ROUND(2.5)", "Sin(1)", "ATAN(1,2)", "ROUND(1,2,3)"}},
        {no_closing_parenthesis_or_comma, {"SIN(1"}},
        {no_colon, {"1 ? 2 3"}},
        {no_closing_parenthesis, {"(1"}},
        {nothing_after_unary, {"~", "*"}},
        {no_factor, {"* 1", "() 1"}},
    };
    for (const auto& [status, formulas] : rows) {
        for (const std::string& formula : formulas) {
            SCOPED_TRACE(formula);
            std::vector<std::string> lines;
            compile_report report;
            const auto program = compile_formula(
                formula, lookup, [&](std::string_view line) { lines.emplace_back(line); }, &report);
            EXPECT_EQ(report.status, status) << status_text(report.status);
            const bool good = status <= end_of_text;
            EXPECT_EQ(program.has_value(), good);
            EXPECT_EQ(lines.empty(), good);
            if (good || lines.empty()) continue;
            EXPECT_EQ(program.error(), genicam_errc::bad_formula);
            EXPECT_TRUE(lines.back().starts_with("km_parse_tree failed with result=" +
                                                 std::to_string(static_cast<int>(status)) + ". Last token view: '"))
                << lines.back();
        }
    }
}

TEST(Formula, RunErrorsAreValues) {
    const char* const no_division = "Integer division without a result.";
    const char* const no_variable = "Failed to look up variable name.";
    const struct {
        const char* formula;
        genicam_errc code;
        const char* text;
    } rows[] = {
        {"", genicam_errc::not_implemented, ""},
        {"1 / 0", genicam_errc::bad_formula, no_division},
        {"1 % 0", genicam_errc::bad_formula, no_division},
        {"(0 - 0x7FFFFFFFFFFFFFFF - 1) / -1", genicam_errc::bad_formula, no_division},
        {"(0 - 0x7FFFFFFFFFFFFFFF - 1) % -1", genicam_errc::bad_formula, no_division},
        {"BAD + 1", genicam_errc::timeout, no_variable},
        {"1 ? 2 : BAD", genicam_errc::timeout, no_variable}, // both branches are evaluated
        {"NONE + BAD", genicam_errc::timeout, no_variable},
        {"NONE + 1", genicam_errc::bad_formula, "Failed to get 2 parameters for binary function."},
        {"-NONE", genicam_errc::bad_formula, "Failed to get 1 parameter for unary function."},
        {"NONE ? 1 : 2", genicam_errc::bad_formula, "Failed to get 3 parameters for condition operator."},
    };
    for (const auto& [formula, code, text] : rows) {
        const auto value = run(formula);
        ASSERT_FALSE(value) << formula;
        EXPECT_EQ(value.error().code, code) << formula;
        EXPECT_STREQ(value.error().text, text) << formula;
    }
}

// Short programs stand in the object, long ones on the heap.
TEST(Formula, CopiesAndMovesKeepTheProgram) {
    std::string text = "X + 1";
    for (int n = 1; n <= 30; n += 29) {
        auto original = compile_formula(text, lookup).value();
        const compiled_formula_data copy = original;
        const compiled_formula_data moved = std::move(original);
        auto f = fetch;
        EXPECT_EQ(copy.execute(f)->to_integer(), moved.execute(f)->to_integer());
        EXPECT_EQ(copy.size(), moved.size());
        for (int more = 0; more < 30; ++more) text += " + (X * 3)";
    }
}

// Constants and variables next to an operator are compiled in; a value that was computed before is not. All forms must
// give the same, errors included. A and B are variables, CA and CB constants of the same values.
TEST(Formula, OperandsMayComeFromAnywhere) {
    const tValue values[] = {int64_t{0}, int64_t{-7}, int64_t{3},   highest, lowest,     -1.0 * 0.0,
                             2.5,        -0.5,        std::nan(""), 1e300,   int64_t{-1}};
    const auto computed = [](const std::string& name) { return "(1 ? " + name + " : 0)"; };
    std::size_t compared = 0;
    for (const std::string op : {"**", ">>", "<<", ">=", "<=", "<>", "&&", "||", ">",     "<", "=",
                                 "%",  "*",  "/",  "+",  "-",  "&",  "|",  "^",  "ROUND", "?:"}) {
        for (const tValue a : values) {
            for (const tValue b : values) {
                const auto names = [&](std::string_view name) -> std::optional<lookup_func_result_t> {
                    if (name == "CA") return a;
                    if (name == "CB") return b;
                    return uint64_t{name == "A" ? 1U : 2U};
                };
                auto f = [&](uint64_t id) -> GenICam::result<tValue> { return id == 1 ? a : b; };
                const auto outcome = [&](const std::string& left, const std::string& right) {
                    const std::string text = op == "ROUND" ? "ROUND(" + left + "," + right + ")"
                                             : op == "?:"  ? "A ? " + left + " : " + right
                                                           : left + op + right;
                    const auto value = compile_formula(text, names).value().execute(f);
                    return value ? std::pair{value->is_integer(), value->payload()}
                                 : std::pair{true, int64_t{value.error().code.value()}};
                };
                const auto expected = outcome(computed("A"), computed("B"));
                for (const std::string left : {"A", "CA", "(1 ? A : 0)"}) {
                    for (const std::string right : {"B", "CB", "(1 ? B : 0)"}) {
                        ASSERT_EQ(outcome(left, right), expected)
                            << left << op << right << ", A = " << a.to_double() << ", B = " << b.to_double();
                        ++compared;
                    }
                }
            }
        }
    }
    EXPECT_EQ(compared, 21U * 11 * 11 * 9);
}

TEST(Formula, UnaryFunctionsTakeConstantsVariablesAndResults) {
    for (const std::string f : {"ATAN", "COS", "SIN", "TAN", "ABS", "EXP", "LN", "LG", "SQRT", "TRUNC", "FLOOR", "CEIL",
                                "ASIN", "ACOS", "SGN", "NEG", "-", "~"}) {
        const auto expected = run(f + "(1 ? Y : 0)").value();
        for (const char* operand : {"(Y)", "(2.5)"}) {
            const auto value = run(f + operand).value();
            EXPECT_EQ(value.is_integer(), expected.is_integer()) << f << operand;
            EXPECT_EQ(value.payload(), expected.payload()) << f << operand;
        }
    }
}

// Around the depth from which the stack is on the heap, and far beyond.
TEST(Formula, EveryDepthOfTheStackWorks) {
    for (int depth = 1; depth < 101; ++depth) {
        std::string sum = "X";
        std::string choice = "X";
        for (int n = 0; n < depth; ++n) {
            sum = "X + (" + sum + ")";
            choice = "1 ? (" + choice + ") : X";
        }
        EXPECT_EQ(run(sum)->to_integer(), 7 * (depth + 1));
        EXPECT_EQ(run(choice)->to_integer(), 7);
        EXPECT_EQ(run("0 ? 1 : (" + choice + ")")->to_integer(), 7);
    }
}

// What no sound document contains ends with a status, in bounded time and stack.
TEST(Formula, HostileTextsEnd) {
    const auto status = [](const std::string& text) {
        compile_report report;
        (void)compile_formula(text, lookup, {}, &report);
        return report.status;
    };
    EXPECT_EQ(status(std::string(1'000'000, '(')), parse_status::not_evaluated);
    EXPECT_EQ(status(std::string(1'000'000, '-')), parse_status::not_evaluated);
    EXPECT_EQ(status(std::string(1'000'000, '9')), parse_status::invalid_token);
    EXPECT_EQ(status("1." + std::string(1'000'000, '3')), parse_status::success);
    std::string chain;
    for (int n = 0; n < 100'000; ++n) chain += "1?1:";
    EXPECT_EQ(status(chain), parse_status::not_evaluated);
    std::string sum = "1";
    for (int n = 0; n < 100'000; ++n) sum += "+1";
    EXPECT_EQ(status(sum), parse_status::output_full);
    std::string long_choice;
    for (int n = 0; n < 256; ++n) long_choice += "(X=" + std::to_string(n) + ")?" + std::to_string(n) + ":";
    EXPECT_EQ(run(long_choice + "0")->to_integer(), 7);
}

} // namespace

} // namespace math_parser
