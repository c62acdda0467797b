#include "text_values.h"

#include <charconv>
#include <span>

namespace GenICam::impl {

namespace {

constexpr bool is_space(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }

template <class T>
std::optional<T> whole_number(std::string_view text, int base) noexcept {
    T value{};
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (error != std::errc{} || stop != text.data() + text.size()) return std::nullopt;
    return value;
}

constexpr bool has_hex_prefix(std::string_view text) noexcept {
    return text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
}

template <class E>
constexpr std::string_view words[] = {""};
template <>
constexpr std::string_view words<Access_t>[] = {"RW", "RO", "WO"};
template <>
constexpr std::string_view words<CachingMode_t>[] = {"WriteThrough", "WriteAround", "NoCache"};
template <>
constexpr std::string_view words<DisplayNotation_t>[] = {"Automatic", "Fixed", "Scientific"};
template <>
constexpr std::string_view words<Endianess_t>[] = {"LittleEndian", "BigEndian"};
template <>
constexpr std::string_view words<FloatRepresentation_t>[] = {"Linear", "Logarithmic", "PureNumber"};
template <>
constexpr std::string_view words<IntRepresentation_t>[] = {"Linear",    "Logarithmic", "Boolean",   "PureNumber",
                                                           "HexNumber", "IPV4Address", "MACAddress"};
template <>
constexpr std::string_view words<Sign_t>[] = {"Signed", "Unsigned"};
template <>
constexpr std::string_view words<Slope_t>[] = {"Increasing", "Decreasing", "Varying", "Automatic"};
template <>
constexpr std::string_view words<Visibility_t>[] = {"Beginner", "Expert", "Guru", "Invisible"};
template <>
constexpr std::string_view words<YesNo_t>[] = {"Yes", "No"};
template <>
constexpr std::string_view words<NameSpace_t>[] = {"Custom", "Standard"};
template <>
constexpr std::string_view words<MergePriority_t>[] = {"-1", "0", "+1"};
template <>
constexpr std::string_view words<StandardNameSpace_t>[] = {"None", "IIDC", "GEV", "CL", "U3V", "CXP", "CLHS"};

} // namespace

std::string_view trimmed(std::string_view text) noexcept {
    while (!text.empty() && is_space(text.front())) text.remove_prefix(1);
    while (!text.empty() && is_space(text.back())) text.remove_suffix(1);
    return text;
}

std::optional<int64_t> parse_integer(std::string_view text) noexcept {
    text = trimmed(text);
    if (has_hex_prefix(text)) {
        const auto value = whole_number<uint64_t>(text.substr(2), 16);
        if (!value) return std::nullopt;
        return static_cast<int64_t>(*value);
    }
    return whole_number<int64_t>(text, 10);
}

std::optional<uint64_t> parse_hex(std::string_view text) noexcept {
    text = trimmed(text);
    return whole_number<uint64_t>(has_hex_prefix(text) ? text.substr(2) : text, 16);
}

std::optional<double> parse_float(std::string_view text) noexcept {
    text = trimmed(text);
    const bool plus = text.starts_with('+');
    if (plus) text.remove_prefix(1);
    const std::string_view digits = !plus && text.starts_with('-') ? text.substr(1) : text;
    // Keeps out the words for infinity and NaN, and a second sign.
    if (digits.empty() || !((digits[0] >= '0' && digits[0] <= '9') || digits[0] == '.')) return std::nullopt;
    double value = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || stop != text.data() + text.size()) return std::nullopt;
    return value;
}

std::optional<math_parser::tValue> parse_value(std::string_view text) noexcept {
    if (const auto integer = parse_integer(text)) return math_parser::tValue{*integer};
    if (const auto real = parse_float(text)) return math_parser::tValue{*real};
    return std::nullopt;
}

std::optional<bool> parse_bool(std::string_view text) noexcept {
    text = trimmed(text);
    if (text == "true" || text == "1") return true;
    if (text == "false" || text == "0") return false;
    return std::nullopt;
}

template <class E>
std::optional<E> parse_word(std::string_view text) noexcept {
    text = trimmed(text);
    for (std::size_t i = 0; i < std::size(words<E>); ++i) {
        if (words<E>[i] == text) return static_cast<E>(i);
    }
    return std::nullopt;
}

template std::optional<Access_t> parse_word(std::string_view) noexcept;
template std::optional<CachingMode_t> parse_word(std::string_view) noexcept;
template std::optional<DisplayNotation_t> parse_word(std::string_view) noexcept;
template std::optional<Endianess_t> parse_word(std::string_view) noexcept;
template std::optional<FloatRepresentation_t> parse_word(std::string_view) noexcept;
template std::optional<IntRepresentation_t> parse_word(std::string_view) noexcept;
template std::optional<Sign_t> parse_word(std::string_view) noexcept;
template std::optional<Slope_t> parse_word(std::string_view) noexcept;
template std::optional<Visibility_t> parse_word(std::string_view) noexcept;
template std::optional<YesNo_t> parse_word(std::string_view) noexcept;
template std::optional<NameSpace_t> parse_word(std::string_view) noexcept;
template std::optional<MergePriority_t> parse_word(std::string_view) noexcept;
template std::optional<StandardNameSpace_t> parse_word(std::string_view) noexcept;

std::string_view word_of(Access_t mode) noexcept { return words<Access_t>[static_cast<int>(mode)]; }

} // namespace GenICam::impl
