#include "printable.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>

namespace cli {

namespace {

// Bytes of the character in front; 0 for a control character and for what is no UTF-8.
size_t shown_in_front(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = byte(0);
    if (first < 0x80) return first >= 0x20 && first != 0x7F ? 1 : 0;
    const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
    const auto follows = [](char each) { return (static_cast<unsigned char>(each) & 0xC0) == 0x80; };
    if (!std::ranges::all_of(text.substr(1, length - 1), follows)) return 0;
    // The second byte tells control characters (U+0080 to U+009F), what is written longer than need be, halves of
    // pairs, and what is beyond the last.
    const unsigned second = byte(1);
    const bool is_none = (first == 0xC2 && second < 0xA0) || (first == 0xE0 && second < 0xA0) ||
                         (first == 0xED && second >= 0xA0) || (first == 0xF0 && second < 0x90) ||
                         (first == 0xF4 && second >= 0x90);
    return is_none ? 0 : length;
}

} // namespace

std::string printable(std::string_view text, std::string_view kept) {
    std::string safe;
    while (!text.empty()) {
        const size_t length = kept.contains(text.front()) ? 1 : shown_in_front(text);
        if (length == 0)
            safe += fmt::format("\\x{:02X}", static_cast<unsigned char>(text.front()));
        else
            safe += text.substr(0, length);
        text.remove_prefix(std::max<size_t>(length, 1));
    }
    return safe;
}

std::string shell_word(std::string_view text) {
    constexpr std::string_view plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-+=:,./@%";
    if (!text.empty() && text.find_first_not_of(plain) == text.npos) return std::string{text};
    const bool has_control = std::ranges::any_of(text, [](char each) { return (each & 0xE0) == 0 || each == 0x7F; });
    std::string word = has_control ? "$'" : "'";
    for (const char each : text) {
        if (has_control && ((each & 0xE0) == 0 || each == 0x7F))
            word += fmt::format("\\{:03o}", static_cast<unsigned char>(each));
        else if (each == '\'')
            word += has_control ? "\\'" : "'\\''";
        else if (has_control && each == '\\')
            word += "\\\\";
        else
            word += each;
    }
    return word + '\'';
}

} // namespace cli
