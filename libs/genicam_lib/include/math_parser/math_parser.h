// Formulas of GenICam documents: compiled once to a postfix program, run on each evaluation. Knows nothing of nodes:
// names reach it through a lookup function, values through a fetch function.
//
// Precedence, loose to tight, each level associating to the left:
//   ? :  |  >= <= <> > < = && ||  |  & | ^ >> <<  |  + -  |  ** % * /  |  unary - + ~
// This is not C's table, and "**" is no tighter than "*": documents rely on it.
#pragma once

#include <GenICam/error.h>
#include <math_parser/operations.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <variant>
#include <vector>

namespace math_parser {

// The only value type: a signed 64-bit integer or a double.
class tValue {
public:
    constexpr tValue() noexcept = default;
    constexpr tValue(int64_t value) noexcept : bits(value) {}
    constexpr tValue(double value) noexcept : bits(std::bit_cast<int64_t>(value)), integer(false) {}
    // An integer, or the bits of a double.
    constexpr tValue(int64_t bits_, bool is_integer_) noexcept : bits(bits_), integer(is_integer_) {}

    [[nodiscard]] constexpr bool is_integer() const noexcept { return integer; }
    // The integer, or the bits of the double.
    [[nodiscard]] constexpr int64_t payload() const noexcept { return bits; }
    // A double is rounded half away from zero; what does not fit is the nearest 64-bit integer, NaN is 0.
    [[nodiscard]] int64_t to_integer() const noexcept;
    [[nodiscard]] constexpr double to_double() const noexcept {
        return integer ? static_cast<double>(bits) : std::bit_cast<double>(bits);
    }
    // NaN counts as true.
    [[nodiscard]] constexpr bool to_bool() const noexcept {
        return integer ? bits != 0 : std::bit_cast<double>(bits) != 0.0;
    }

private:
    int64_t bits = 0;
    bool integer = true;
};

// Half away from zero, as a double.
[[nodiscard]] double half_away(double value) noexcept;
// half_away, then to 64 bits; saturates, NaN is 0.
[[nodiscard]] int64_t round_to_integer(double value) noexcept;
// Toward zero; saturates, NaN is 0.
[[nodiscard]] int64_t truncate_to_integer(double value) noexcept;

inline int64_t tValue::to_integer() const noexcept {
    return integer ? bits : round_to_integer(std::bit_cast<double>(bits));
}

// Outcome of the parser. end_of_text is a success as well: an operator without a right side ends the program.
enum class parse_status : int {
    success = 0,
    end_of_text = 1,
    invalid_token = 2,
    unknown_variable = 3,
    unknown_function = 4,
    output_full = 5,
    no_closing_parenthesis_or_comma = 6,
    no_colon = 7,
    no_closing_parenthesis = 8,
    nothing_after_unary = 9,
    no_factor = 10,
    not_evaluated = 11, // nested deeper than any sound formula
};
[[nodiscard]] std::string_view status_text(parse_status status) noexcept;

class compiled_formula_data;

// What a name means: a variable (an identifier id, never 0), a constant, or a formula whose tokens are copied in.
using lookup_func_result_t = std::variant<uint64_t, tValue, const compiled_formula_data*>;
using lookup_func_t = std::function<std::optional<lookup_func_result_t>(std::string_view name)>;
using log_func_t = std::function<void(std::string_view text)>;

struct compile_report {
    parse_status status = parse_status::success;
    std::size_t offset = 0; // where in the text the last token began
    std::size_t size = 0;   // tokens of the program, or of what there was of it
};

// The language as stated above, or with ROUND of one argument too (half away from zero), which cameras' documents call.
enum class dialect { strict, documents };

// bad_formula when the status is worse than end_of_text. Text after a complete expression is ignored. `log` takes one
// line about an unknown variable and one about a failure. `report`, if given, is filled in every case.
[[nodiscard]] GenICam::result<compiled_formula_data> compile_formula(std::string_view text, const lookup_func_t& lookup,
                                                                     const log_func_t& log = {},
                                                                     compile_report* report = nullptr,
                                                                     dialect language = dialect::strict);

// Why a run failed; the text is for a log.
struct execution_error {
    std::error_code code;
    const char* text = "";
};

// A reference to the function that gives a variable its value: result<tValue>(uint64_t id). The function must outlive
// the run.
class fetch_func_ref {
public:
    template <class F>
    requires(std::is_invocable_r_v<GenICam::result<tValue>, F&, uint64_t> && !std::is_same_v<F, fetch_func_ref>)
        fetch_func_ref(F& function)
    noexcept
        : object(&function),
          call([](void* target, uint64_t id) -> GenICam::result<tValue> { return (*static_cast<F*>(target))(id); }) {}

    GenICam::result<tValue> operator()(uint64_t id) const { return call(object, id); }

private:
    void* object;
    GenICam::result<tValue> (*call)(void*, uint64_t);
};

// A compiled program. Reentrant: one program may run on several threads.
class compiled_formula_data {
public:
    // Where an operation finds its operands. A constant or variable right before it, and a variable before that one,
    // are part of its token, so most of them never see the stack.
    enum class operands : uint8_t {
        top,
        top_two,
        top_constant,
        top_variable,
        constant,
        variable,
        variable_constant,
        variable_variable
    };
    // Replaces the operands that it takes from the stack by its result. A conditional has its condition there too.
    struct token {
        operation what;
        operands from;
        bool is_integer;       // the constant
        int32_t left_variable; // identifier id
        int64_t payload;       // what is on the right: a constant as tValue::payload, or an identifier id

        [[nodiscard]] uint32_t takes() const noexcept {
            constexpr uint8_t values[] = {1, 2, 1, 1, 0, 0, 0, 0};
            return values[static_cast<uint8_t>(from)] + (what == operation::conditional ? 1U : 0U);
        }
        [[nodiscard]] tValue constant() const noexcept { return {payload, is_integer}; }
    };

    compiled_formula_data() noexcept;
    compiled_formula_data(const compiled_formula_data& other);
    compiled_formula_data(compiled_formula_data&& other) noexcept;
    compiled_formula_data& operator=(const compiled_formula_data& other);
    compiled_formula_data& operator=(compiled_formula_data&& other) noexcept;
    ~compiled_formula_data() = default;

    [[nodiscard]] bool empty() const noexcept { return count == 0; }
    [[nodiscard]] std::size_t size() const noexcept { return count; }
    [[nodiscard]] const token* begin() const noexcept { return data(); }
    [[nodiscard]] const token* end() const noexcept { return data() + count; }
    // The first token that takes more values than there are; otherwise the end.
    [[nodiscard]] const token* first_lacking() const noexcept { return data() + runnable; }

    // The most values the stack holds in a run.
    [[nodiscard]] uint32_t stack_depth() const noexcept { return depth; }

    // Runs the program; allocates nothing while the stack stays within 20 values. An empty program answers
    // not_implemented. Both branches of a conditional are evaluated, so an error in either counts. Integer division
    // and remainder by zero, and INT64_MIN / -1, answer bad_formula.
    [[nodiscard]] std::expected<tValue, execution_error> execute(fetch_func_ref fetch) const;

    // These answer false when the program has reached its limit.
    [[nodiscard]] bool append_constant(tValue value);
    [[nodiscard]] bool append_variable(uint64_t id);
    [[nodiscard]] bool append_operation(operation what);
    [[nodiscard]] bool append(const token& next);

private:
    static constexpr std::size_t inline_capacity = 10;
    // Expressions are expanded at each use, so a few lines could ask for any amount of memory.
    static constexpr std::size_t maximum_size = 8192;

    [[nodiscard]] const token* data() const noexcept { return heap ? heap.get() : local; }
    [[nodiscard]] bool ends_with_load(operands from) const noexcept;
    token drop_last() noexcept;

    std::unique_ptr<token[]> heap; // when more than the inline tokens are needed
    uint32_t count = 0;
    uint32_t capacity = inline_capacity;
    uint32_t height = 0;   // values on the stack after the last token
    uint32_t depth = 0;    // the most values the stack holds in a run
    uint32_t runnable = 0; // tokens before the first that takes more values than there are
    token local[inline_capacity];
};

} // namespace math_parser
