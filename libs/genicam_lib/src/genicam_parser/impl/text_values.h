// Numbers and words as documents write them. White space around them is dropped; anything else that does not belong is
// bad text.
#pragma once

#include <GenICam/types.h>
#include <math_parser/math_parser.h>

#include <pugixml.hpp>

#include <optional>
#include <string_view>

namespace GenICam::impl {

[[nodiscard]] std::string_view trimmed(std::string_view text) noexcept;
// The element's text without white space around it; empty for no element.
[[nodiscard]] inline std::string_view text_of(pugi::xml_node element) noexcept {
    return trimmed(element.child_value());
}

// Decimal, which may begin with "-", or hexadecimal after "0x". 64 hexadecimal bits are taken as they are.
[[nodiscard]] std::optional<int64_t> parse_integer(std::string_view text) noexcept;
// Hexadecimal; the standard writes event and chunk ids without a prefix, some documents with one.
[[nodiscard]] std::optional<uint64_t> parse_hex(std::string_view text) noexcept;
// A decimal number, one leading "+" is accepted.
[[nodiscard]] std::optional<double> parse_float(std::string_view text) noexcept;
// An integer when the whole text is one, else a float.
[[nodiscard]] std::optional<math_parser::tValue> parse_value(std::string_view text) noexcept;
[[nodiscard]] std::optional<bool> parse_bool(std::string_view text) noexcept;

// The word's enumerator, for each enumeration of types.h.
template <class E>
[[nodiscard]] std::optional<E> parse_word(std::string_view text) noexcept;
[[nodiscard]] std::string_view word_of(Access_t mode) noexcept;

} // namespace GenICam::impl
