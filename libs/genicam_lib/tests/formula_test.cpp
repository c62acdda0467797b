// The formula engine: what compiles, what it gives, and as which kind of number.
#include <math_parser/math_parser.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace math_parser {

namespace {

using GenICam::genicam_errc;

constexpr double infinity = std::numeric_limits<double>::infinity();
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

struct value_case {
    const char* formula;
    tValue expected;
};

void PrintTo(const value_case& given, std::ostream* out) { *out << given.formula; }

class FormulaValue : public testing::TestWithParam<value_case> {};

TEST_P(FormulaValue, IsExact) {
    const auto value = run(GetParam().formula);
    ASSERT_TRUE(value) << GetParam().formula << ": " << value.error().text;
    const tValue expected = GetParam().expected;
    EXPECT_EQ(value->is_integer(), expected.is_integer()) << GetParam().formula;
    if (expected.is_integer()) {
        EXPECT_EQ(value->to_integer(), expected.to_integer()) << GetParam().formula;
    } else if (std::isnan(expected.to_double())) {
        EXPECT_TRUE(std::isnan(value->to_double())) << GetParam().formula;
    } else {
        EXPECT_EQ(value->to_double(), expected.to_double()) << GetParam().formula;
    }
}

constexpr int64_t i(int64_t value) { return value; }

INSTANTIATE_TEST_SUITE_P(Arithmetic, FormulaValue,
                         testing::Values(value_case{"7 / 2", i(3)}, value_case{"7 / 2.0", 3.5},
                                         value_case{"-7 / 2", i(-3)}, value_case{"-7 % 3", i(-1)},
                                         value_case{"7.6 % 3", i(2)}, value_case{"2 ** -1", i(0)},
                                         value_case{"2.0 ** -1", 0.5}, value_case{"2 ** 3", i(8)},
                                         value_case{"1.0 / 0", infinity}, value_case{"0x7FFFFFFFFFFFFFFF + 1", lowest},
                                         value_case{"-9223372036854775808", lowest}, value_case{"1 - 2", i(-1)},
                                         value_case{"3 * 1.5", 4.5}, value_case{"0xFFFFFFFFFFFFFFFF", i(-1)},
                                         value_case{"10 ** 30", highest}));

// The precedence of this language, not that of C.
INSTANTIATE_TEST_SUITE_P(Precedence, FormulaValue,
                         testing::Values(value_case{"1 + 2 * 3", i(7)}, value_case{"1 = 1 + 0", i(1)},
                                         value_case{"2 ** 3 ** 2", i(64)}, value_case{"2 * 3 ** 2", i(36)},
                                         value_case{"2 = 1 && 1 = 1", i(0)}, value_case{"1 = 1 && 2 = 2", i(0)},
                                         value_case{"3 & 1 = 1", i(1)}, value_case{"1 | 2 + 1", i(3)},
                                         value_case{"1 << 1 + 1", i(4)}, value_case{"10 - 4 - 3", i(3)},
                                         value_case{"-2 ** 2", i(4)}, value_case{"~1 + 1", i(-1)},
                                         value_case{"0 ? 1 : 0 ? 2 : 3", i(3)}, value_case{"1 ? 2 : 3 + 10", i(2)},
                                         value_case{"0 && 0 || 1", i(1)}));

INSTANTIATE_TEST_SUITE_P(BitsAndComparisons, FormulaValue,
                         testing::Values(value_case{"5.5 & 3", i(2)}, value_case{"-1 >> 1", i(-1)},
                                         value_case{"1 << 64", i(1)}, value_case{"1 << 65", i(2)},
                                         value_case{"6 ^ 3", i(5)}, value_case{"~0", i(-1)}, value_case{"~2.5", i(-4)},
                                         value_case{"1.5 > 1", i(1)}, value_case{"2 >= 2", i(1)},
                                         value_case{"2 <> 2", i(0)}, value_case{"2 <= 1", i(0)},
                                         value_case{"0.0 / 0.0 = 0.0 / 0.0", i(0)},
                                         value_case{"(0.0 / 0.0) <> 1", i(1)}, value_case{"(0.0 / 0.0) < 1", i(0)},
                                         value_case{"(0.0 / 0.0) && 1", i(1)}, value_case{"0.5 || 0", i(1)},
                                         value_case{"0.0 || 0", i(0)}, value_case{"0.1 ? 5 : 6", i(5)}));

INSTANTIATE_TEST_SUITE_P(
    Functions, FormulaValue,
    testing::Values(value_case{"FLOOR(2)", 2.0}, value_case{"ABS(-3)", 3.0}, value_case{"sqrt(16)", 4.0},
                    value_case{"TRUNC(-2.7)", -2.0}, value_case{"CEIL(2.1)", 3.0}, value_case{"LG(1000)", 3.0},
                    value_case{"LN(1)", 0.0}, value_case{"exp(0)", 1.0}, value_case{"NEG(3)", i(-3)},
                    value_case{"NEG(1.5)", -1.5}, value_case{"SGN(-3)", i(-1)}, value_case{"SGN(0)", i(0)},
                    value_case{"SGN(-0.5)", -1.0}, value_case{"SGN(0.0)", 0.0}, value_case{"SGN(0.0/0.0)", 1.0},
                    value_case{"ROUND(2.5, 0)", 3.0}, value_case{"ROUND(-2.5, 0)", -3.0},
                    value_case{"ROUND(2.45, 1)", 2.5}, value_case{"ROUND(1234, 0 - 2)", 1200.0},
                    value_case{"ROUND(-2.4, 0)", -2.0}, value_case{"SIN(0)", 0.0}, value_case{"cos(0)", 1.0},
                    value_case{"ASIN(2)", std::numeric_limits<double>::quiet_NaN()},
                    value_case{"PI", 3.141592653589793}, value_case{"E", 2.718281828459045},
                    value_case{"ATAN ( 0 )", 0.0}));

INSTANTIATE_TEST_SUITE_P(Names, FormulaValue,
                         testing::Values(value_case{"X", i(7)}, value_case{"X / 2", i(3)}, value_case{"Y * 2", 5.0},
                                         value_case{"FOUR + X", i(11)}, value_case{"SUM * 2", i(16)},
                                         value_case{" \t\nX\r\n+ 1", i(8)}));

// Whatever follows a complete expression is ignored, and an operator at the end does nothing.
INSTANTIATE_TEST_SUITE_P(Leftovers, FormulaValue,
                         testing::Values(value_case{"1 2", i(1)}, value_case{"1)", i(1)}, value_case{"1 +", i(1)},
                                         value_case{"1 ? 2", i(2)}, value_case{"2 * (3 +", i(3)}, value_case{"1e", 1.0},
                                         value_case{"2.", 2.0}, value_case{"1.5e2", 150.0}, value_case{"1E+2", 100.0},
                                         value_case{"0x1e", i(30)}));

struct status_case {
    const char* formula;
    parse_status status;
};

void PrintTo(const status_case& given, std::ostream* out) { *out << given.formula; }

class FormulaStatus : public testing::TestWithParam<status_case> {};

TEST_P(FormulaStatus, IsReported) {
    std::vector<std::string> lines;
    compile_report report;
    const auto program = compile_formula(
        GetParam().formula, lookup, [&](std::string_view line) { lines.emplace_back(line); }, &report);
    EXPECT_EQ(report.status, GetParam().status) << GetParam().formula << ": " << status_text(report.status);
    const bool good = GetParam().status <= parse_status::end_of_text;
    EXPECT_EQ(program.has_value(), good);
    if (good) {
        EXPECT_TRUE(lines.empty());
        return;
    }
    EXPECT_EQ(program.error(), genicam_errc::bad_formula);
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(lines.back().starts_with(
        "km_parse_tree failed with result=" + std::to_string(static_cast<int>(report.status)) + ". Last token view: '"))
        << lines.back();
}

INSTANTIATE_TEST_SUITE_P(
    All, FormulaStatus,
    testing::Values(
        status_case{"", parse_status::end_of_text}, status_case{"1 +", parse_status::end_of_text},
        status_case{"1", parse_status::success}, status_case{"#", parse_status::invalid_token},
        status_case{"1 #", parse_status::invalid_token}, status_case{"(1 #", parse_status::invalid_token},
        status_case{"Z", parse_status::unknown_variable}, status_case{"x", parse_status::unknown_variable},
        status_case{".5", parse_status::unknown_variable}, status_case{"FOO(1)", parse_status::unknown_function},
        status_case{"round(2,1)", parse_status::unknown_function},
        status_case{"ROUND(2.5)", parse_status::unknown_function},
        status_case{"Sin(1)", parse_status::unknown_function}, status_case{"ATAN(1,2)", parse_status::unknown_function},
        status_case{"ROUND(1,2,3)", parse_status::unknown_function},
        status_case{"SIN(1", parse_status::no_closing_parenthesis_or_comma},
        status_case{"1 ? 2 3", parse_status::no_colon}, status_case{"1 ? 2", parse_status::end_of_text},
        status_case{"(1", parse_status::no_closing_parenthesis}, status_case{"~", parse_status::nothing_after_unary},
        status_case{"*", parse_status::nothing_after_unary}, status_case{"* 1", parse_status::no_factor},
        status_case{"() 1", parse_status::no_factor}, status_case{"1e999", parse_status::invalid_token},
        status_case{"99999999999999999999999", parse_status::invalid_token}));

TEST(Formula, RunErrorsAreValues) {
    struct error_case {
        const char* formula;
        genicam_errc code;
        const char* text;
    };
    for (const auto& [formula, code, text] : {
             error_case{"", genicam_errc::not_implemented, ""},
             error_case{"1 / 0", genicam_errc::bad_formula, "Integer division without a result."},
             error_case{"1 % 0", genicam_errc::bad_formula, "Integer division without a result."},
             error_case{"(0 - 0x7FFFFFFFFFFFFFFF - 1) / -1", genicam_errc::bad_formula,
                        "Integer division without a result."},
             error_case{"(0 - 0x7FFFFFFFFFFFFFFF - 1) % -1", genicam_errc::bad_formula,
                        "Integer division without a result."},
             error_case{"BAD + 1", genicam_errc::timeout, "Failed to look up variable name."},
             // Both branches are evaluated, so an error in the unused one counts.
             error_case{"1 ? 2 : BAD", genicam_errc::timeout, "Failed to look up variable name."},
             error_case{"NONE + BAD", genicam_errc::timeout, "Failed to look up variable name."},
             error_case{"NONE + 1", genicam_errc::bad_formula, "Failed to get 2 parameters for binary function."},
             error_case{"-NONE", genicam_errc::bad_formula, "Failed to get 1 parameter for unary function."},
             error_case{"NONE ? 1 : 2", genicam_errc::bad_formula,
                        "Failed to get 3 parameters for condition operator."},
         }) {
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
