// Cuts a formula into tokens.
#pragma once

#include <math_parser/math_parser.h>

namespace math_parser {

struct text_token {
    enum class kind { symbol, number, identifier, function };
    parse_status status = parse_status::success; // success, end_of_text or invalid_token
    kind what = kind::symbol;
    uint16_t symbol = 0; // one or two characters, the first in the low byte
    tValue number;
    std::string_view view;
};

[[nodiscard]] constexpr uint16_t symbol_of(char first, char second = '\0') noexcept {
    return static_cast<uint16_t>(static_cast<unsigned char>(first) | static_cast<unsigned char>(second) << 8);
}

class tokenizer {
public:
    explicit tokenizer(std::string_view formula) noexcept : text(formula) {}

    // The next token stays in place until consumed.
    [[nodiscard]] const text_token& peek();
    void consume() noexcept { ahead = false; }
    [[nodiscard]] std::size_t last_offset() const noexcept { return offset; }
    [[nodiscard]] std::string_view last_view() const noexcept { return current.view; }

private:
    void skip_space() noexcept;
    [[nodiscard]] bool take_number();
    [[nodiscard]] bool take_identifier();

    std::string_view text;
    std::size_t at = 0;
    std::size_t offset = 0;
    text_token current;
    bool ahead = false;
};

} // namespace math_parser
