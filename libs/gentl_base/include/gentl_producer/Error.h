// GenTL::Error: how every operation inside the producer reports failure, by value.
#pragma once

#include <gentl/GenTL.h>

#include <fmt/core.h>

#include <string>
#include <utility>

namespace GenTL {

// Default words of a code; "Unknown Error ID: {}" for codes outside the published range.
[[nodiscard]] std::string error_text(GC_ERROR code);

// A GenTL code with the words of the place that knows the reason. Success is code 0; an empty message is legal and
// stands for the code's default text.
struct [[nodiscard]] Error {
    GC_ERROR code = GC_ERR_SUCCESS;
    std::string message;

    Error() = default;
    explicit Error(GC_ERROR error_code) : code(error_code) {}
    Error(GC_ERROR error_code, std::string text) : code(error_code), message(std::move(text)) {}
    template <class First, class... Rest>
    Error(GC_ERROR error_code, fmt::format_string<First, Rest...> format, First&& first, Rest&&... rest)
        : code(error_code), message(fmt::format(format, std::forward<First>(first), std::forward<Rest>(rest)...)) {}

    [[nodiscard]] bool failed() const noexcept { return code != GC_ERR_SUCCESS; }
    [[nodiscard]] std::string text() const { return message.empty() ? error_text(code) : message; }
};

[[nodiscard]] inline Error success() { return {}; }

} // namespace GenTL
