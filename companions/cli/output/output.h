// The standard output, checked: what cannot be written is a failure of the command, never silence.
#pragma once

#include "printable.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <exception>
#include <string_view>

namespace cli {

// Throw failure(cause::output) with the system's reason. The text goes out as it is; `print` is for a person and lets
// no value command a terminal.
void print_text(std::string_view text);
void flush_output();
template <class... Values>
void print(fmt::format_string<Values...> format, Values&&... values) {
    print_text(printable(fmt::format(format, std::forward<Values>(values)...), "\n\t"));
}
// One line, at once; bytes that are no UTF-8 are replaced.
void print_json(const nlohmann::json& object);
[[nodiscard]] std::string json_text(const nlohmann::json& object);

// Words for a person that are no part of the answer, to the error output, in the same two ways. Nothing depends on
// their arrival.
void say_text(std::string_view text) noexcept;
template <class... Values>
void say(fmt::format_string<Values...> format, Values&&... values) {
    say_text(printable(fmt::format(format, std::forward<Values>(values)...), "\n\t"));
}

// The member "error" of a command's object, always of these members:
// {"cause", "exit_code", "text", "call", "code", "producer"}, the last three null where no call of the producer failed.
[[nodiscard]] nlohmann::json error_object(const std::exception& reason);
// Says the failure, with `json` as the member "error" of `result` too. The exit code.
int report_failure(const std::exception& reason, bool json, nlohmann::json result = nlohmann::json::object());

} // namespace cli
