// Ranges of the numbers on the programs' command lines. The parser's own checks tell the limits of a double in 300
// digits and let NaN into every range, and its conversion takes -1 for an unsigned number near 2^64.
#pragma once

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>

namespace option_checks {

// Decimal, octal behind 0 and hexadecimal behind 0x, as the parser reads it.
inline CLI::Validator whole_number(int64_t least, int64_t most = std::numeric_limits<int64_t>::max()) {
    const bool open = most == std::numeric_limits<int64_t>::max();
    const auto check = [=](const std::string& text) -> std::string {
        char* end = nullptr;
        errno = 0;
        const long long value = std::strtoll(text.c_str(), &end, 0);
        if (!text.empty() && *end == '\0' && errno == 0 && value >= least && value <= most) return {};
        return open ? fmt::format("'{}' is no whole number of {} or more", text, least)
                    : fmt::format("'{}' is no whole number from {} to {}", text, least, most);
    };
    return {check, open ? "" : fmt::format("{}..{}", least, most)};
}

inline CLI::Validator number(double least, double most) {
    const auto check = [=](const std::string& text) -> std::string {
        char* end = nullptr;
        const double value = std::strtod(text.c_str(), &end);
        if (!text.empty() && *end == '\0' && value >= least && value <= most) return {}; // NaN is not
        return fmt::format("'{}' is no number from {} to {}", text, least, most);
    };
    return {check, fmt::format("{}..{}", least, most)};
}

} // namespace option_checks
