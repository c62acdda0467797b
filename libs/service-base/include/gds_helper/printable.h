// Text from a stranger, made fit for one line of a log.
#pragma once

#include <string>
#include <string_view>

namespace gds_helper {

// Everything but printable ASCII as \xNN, so that no name can begin a line of its own or command a terminal; what is
// longer than `most` bytes is cut.
[[nodiscard]] inline std::string printable(std::string_view text, std::size_t most = 128) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string safe;
    for (const char c : text.substr(0, most)) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7F && c != '\\') {
            safe += c;
        } else {
            safe += "\\x";
            safe += digits[byte >> 4];
            safe += digits[byte & 15];
        }
    }
    if (text.size() > most) safe += "...";
    return safe;
}

} // namespace gds_helper
