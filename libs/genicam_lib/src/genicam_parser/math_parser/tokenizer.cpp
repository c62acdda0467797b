#include "tokenizer.h"

#include <charconv>

namespace math_parser {

namespace {

constexpr bool is_space(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr bool is_digit(char c) noexcept { return c >= '0' && c <= '9'; }
constexpr bool is_name(char c) noexcept {
    return is_digit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == '.';
}

constexpr std::string_view pairs[] = {"**", ">>", "<<", ">=", "<=", "<>", "&&", "||"};
constexpr std::string_view singles = "()><=%*/+-&|^~?:,";

} // namespace

void tokenizer::skip_space() noexcept {
    while (at < text.size() && is_space(text[at])) ++at;
}

// A sign is an operator and never part of a number, and a number does not start with ".".
bool tokenizer::take_number() {
    const char* const begin = text.data() + at;
    const char* const end = text.data() + text.size();
    uint64_t whole = 0;
    if (end - begin >= 3 && begin[0] == '0' && (begin[1] == 'x' || begin[1] == 'X')) {
        const auto [stop, error] = std::from_chars(begin + 2, end, whole, 16);
        if (error == std::errc::result_out_of_range) return false;
        if (error == std::errc{}) {
            current.number = static_cast<int64_t>(whole);
            current.view = {begin, stop};
            return true;
        }
    }
    if (begin == end || !is_digit(*begin)) return false;
    const auto [stop, error] = std::from_chars(begin, end, whole);
    if (stop != end && (*stop == '.' || *stop == 'e' || *stop == 'E')) {
        double real = 0;
        const auto [real_stop, real_error] = std::from_chars(begin, end, real);
        if (real_error != std::errc{}) return false;
        current.number = real;
        current.view = {begin, real_stop};
        return true;
    }
    if (error != std::errc{}) return false;
    // Values of 2^63 and more wrap, which gives "-9223372036854775808" its meaning after negation.
    current.number = static_cast<int64_t>(whole);
    current.view = {begin, stop};
    return true;
}

bool tokenizer::take_identifier() {
    if (is_digit(text[at])) return false;
    std::size_t stop = at;
    while (stop < text.size() && is_name(text[stop])) ++stop;
    if (stop == at) return false;
    current.view = text.substr(at, stop - at);
    return true;
}

const text_token& tokenizer::peek() {
    if (ahead) return current;
    ahead = true;
    skip_space();
    offset = at;
    current.status = parse_status::success;
    const std::string_view rest = text.substr(at);
    if (rest.empty()) {
        current.status = parse_status::end_of_text;
        current.view = {};
        return current;
    }
    for (const std::string_view pair : pairs) {
        if (rest.size() < 2 || rest[0] != pair[0] || rest[1] != pair[1]) continue;
        current.what = text_token::kind::symbol;
        current.symbol = symbol_of(pair[0], pair[1]);
        current.view = rest.substr(0, 2);
        at += 2;
        return current;
    }
    if (singles.find(rest[0]) != std::string_view::npos) {
        current.what = text_token::kind::symbol;
        current.symbol = symbol_of(rest[0]);
        current.view = rest.substr(0, 1);
        ++at;
        return current;
    }
    if (take_number()) {
        current.what = text_token::kind::number;
        at += current.view.size();
        return current;
    }
    if (take_identifier()) {
        at += current.view.size();
        skip_space();
        const bool call = at < text.size() && text[at] == '(';
        if (call) ++at;
        current.what = call ? text_token::kind::function : text_token::kind::identifier;
        return current;
    }
    current.status = parse_status::invalid_token;
    current.view = rest;
    return current;
}

} // namespace math_parser
