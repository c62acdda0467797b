// Recursive descent over the precedence table of the header, writing the postfix program as it goes.
#include "tokenizer.h"

#include <math_parser/operations.h>

#include <fmt/format.h>

#include <utility>

namespace math_parser {

namespace {

using program = compiled_formula_data;
using status = parse_status;

// Sound formulas nest a dozen levels, long "? :" chains some hundred. Beyond this the stack is at risk.
constexpr unsigned maximum_nesting = 500;

struct binary_operator {
    int level; // 0: no binary operator
    operation what;
};

// Differs from C on purpose: comparison and logic share a level, all bit operators bind tighter than comparison, and
// "**" stands with "*" and associates to the left: 2 ** 3 ** 2 is 64.
binary_operator binary_operator_of(uint16_t symbol) noexcept {
    switch (symbol) {
    case symbol_of('>', '='):
        return {2, operation::greater_equal};
    case symbol_of('<', '='):
        return {2, operation::less_equal};
    case symbol_of('<', '>'):
        return {2, operation::not_equal};
    case symbol_of('>'):
        return {2, operation::greater};
    case symbol_of('<'):
        return {2, operation::less};
    case symbol_of('='):
        return {2, operation::equal};
    case symbol_of('&', '&'):
        return {2, operation::logic_and};
    case symbol_of('|', '|'):
        return {2, operation::logic_or};
    case symbol_of('&'):
        return {3, operation::bit_and};
    case symbol_of('|'):
        return {3, operation::bit_or};
    case symbol_of('^'):
        return {3, operation::bit_xor};
    case symbol_of('>', '>'):
        return {3, operation::shift_right};
    case symbol_of('<', '<'):
        return {3, operation::shift_left};
    case symbol_of('+'):
        return {4, operation::add};
    case symbol_of('-'):
        return {4, operation::subtract};
    case symbol_of('*', '*'):
        return {5, operation::power};
    case symbol_of('%'):
        return {5, operation::remainder};
    case symbol_of('*'):
        return {5, operation::multiply};
    case symbol_of('/'):
        return {5, operation::divide};
    default:
        return {0, {}};
    }
}

class parser {
public:
    parser(std::string_view text, const lookup_func_t& lookup_, const log_func_t& log_, dialect language_)
        : tokens(text), lookup(lookup_), log(log_), language(language_) {}

    status expression() {
        if (nesting == maximum_nesting) return status::not_evaluated;
        ++nesting;
        const status outcome = conditional();
        --nesting;
        return outcome;
    }

    tokenizer tokens;
    program output;

private:
    bool at_symbol(uint16_t symbol) {
        const text_token& next = tokens.peek();
        return next.status == status::success && next.what == text_token::kind::symbol && next.symbol == symbol;
    }

    static status accepted(bool appended) { return appended ? status::success : status::output_full; }
    status emit(operation what) { return accepted(output.append_operation(what)); }
    status emit(tValue value) { return accepted(output.append_constant(value)); }

    status conditional() {
        if (const status s = binary_chain(2); s != status::success) return s;
        while (at_symbol(symbol_of('?'))) {
            tokens.consume();
            if (const status s = expression(); s != status::success) return s;
            if (const status s = tokens.peek().status; s != status::success) return s;
            if (!at_symbol(symbol_of(':'))) return status::no_colon;
            tokens.consume();
            if (const status s = expression(); s != status::success) return s;
            if (const status s = emit(operation::conditional); s != status::success) return s;
        }
        return status::success;
    }

    // Operands joined by operators of at least this level.
    status binary_chain(int lowest_level) {
        if (const status s = factor(); s != status::success) return s;
        for (;;) {
            const text_token& next = tokens.peek();
            if (next.status == status::end_of_text) return status::success;
            if (next.status != status::success) return next.status;
            if (next.what != text_token::kind::symbol) return status::success;
            const binary_operator found = binary_operator_of(next.symbol);
            if (found.level == 0 || found.level < lowest_level) return status::success;
            tokens.consume();
            if (const status s = binary_chain(found.level + 1); s != status::success) return s;
            if (const status s = emit(found.what); s != status::success) return s;
        }
    }

    status factor() {
        const text_token token = tokens.peek();
        if (token.status != status::success) return token.status;
        tokens.consume();
        switch (token.what) {
        case text_token::kind::number:
            return emit(token.number);
        case text_token::kind::identifier:
            return identifier(token.view);
        case text_token::kind::function:
            return function(token.view);
        case text_token::kind::symbol:
            break;
        }
        if (token.symbol == symbol_of('(')) {
            if (const status s = expression(); s != status::success) return s;
            if (!at_symbol(symbol_of(')'))) return status::no_closing_parenthesis;
            tokens.consume();
            return status::success;
        }
        // Whichever operator it is, something must follow before it is judged: "*" alone lacks a token, "* 1" a factor.
        if (tokens.peek().status != status::success) return status::nothing_after_unary;
        const bool plus = token.symbol == symbol_of('+');
        const bool minus = token.symbol == symbol_of('-');
        if (!plus && !minus && token.symbol != symbol_of('~')) return status::no_factor;
        if (nesting == maximum_nesting) return status::not_evaluated;
        ++nesting;
        const status s = factor();
        --nesting;
        if (s != status::success || plus) return s;
        return emit(minus ? operation::negate : operation::complement);
    }

    status identifier(std::string_view name) {
        if (name == "PI") return emit(tValue{std::bit_cast<double>(uint64_t{0x400921fb54442d18})});
        if (name == "E") return emit(tValue{std::bit_cast<double>(uint64_t{0x4005bf0a8b145769})});
        const auto found = lookup ? lookup(name) : std::nullopt;
        if (!found) {
            if (log) log(fmt::format("Failed to map variable '{}' to either a constant or a pValue.", name));
            return status::unknown_variable;
        }
        if (const auto* id = std::get_if<uint64_t>(&*found)) return accepted(output.append_variable(*id));
        if (const auto* constant = std::get_if<tValue>(&*found)) return emit(*constant);
        for (const program::token& token : *std::get<const program*>(*found)) {
            if (!output.append(token)) return status::output_full;
        }
        return status::success;
    }

    status function(std::string_view name) {
        std::size_t arguments = 0;
        for (;;) {
            if (const status s = expression(); s != status::success) return s;
            ++arguments;
            const bool more = at_symbol(symbol_of(','));
            if (!more && !at_symbol(symbol_of(')'))) return status::no_closing_parenthesis_or_comma;
            tokens.consume();
            if (!more) break;
        }
        if (arguments == 1) {
            if (const auto found = find_unary(name)) return emit(*found);
            if (language == dialect::documents && name == "ROUND") {
                const status s = emit(tValue{int64_t{0}});
                return s == status::success ? emit(operation::round) : s;
            }
        } else if (arguments == 2) {
            if (const auto found = find_binary(name)) return emit(*found);
        }
        return status::unknown_function;
    }

    const lookup_func_t& lookup;
    const log_func_t& log;
    const dialect language;
    unsigned nesting = 0;
};

} // namespace

std::string_view status_text(parse_status value) noexcept {
    switch (value) {
    case status::success:
        return "success";
    case status::end_of_text:
        return "End of file";
    case status::invalid_token:
        return "Invalid token found.";
    case status::unknown_variable:
        return "Failed to map a variable name to a identifier_id";
    case status::unknown_function:
        return "Failed to map a function identifier to a actual function.";
    case status::output_full:
        return "Failed to add token to output.";
    case status::no_closing_parenthesis_or_comma:
        return "Failed to find closing ')' or ','";
    case status::no_colon:
        return "expected colon for tri-nary operator.";
    case status::no_closing_parenthesis:
        return "Failed to find a ')'.";
    case status::nothing_after_unary:
        return "Failed to find token after unary operator.";
    case status::no_factor:
        return "Failed to find terminal symbol for factor.";
    case status::not_evaluated:
        return "Failed to evaluate token.";
    }
    return {};
}

GenICam::result<compiled_formula_data> compile_formula(std::string_view text, const lookup_func_t& lookup,
                                                       const log_func_t& log, compile_report* report,
                                                       dialect language) {
    parser parse{text, lookup, log, language};
    const status outcome = parse.expression();
    if (report != nullptr) *report = {outcome, parse.tokens.last_offset(), parse.output.size()};
    if (outcome != status::success && outcome != status::end_of_text) {
        if (log) {
            log(fmt::format("km_parse_tree failed with result={}. Last token view: '{}'.", std::to_underlying(outcome),
                            parse.tokens.last_view()));
        }
        return GenICam::fail(GenICam::genicam_errc::bad_formula);
    }
    return std::move(parse.output);
}

} // namespace math_parser
