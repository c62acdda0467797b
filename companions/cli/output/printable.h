// Text from a stranger, made fit for a terminal.
#pragma once

#include <string>
#include <string_view>

namespace cli {

// Control characters, and bytes that are no UTF-8, as \xNN, so that no camera's name commands a terminal or begins a
// line of its own; those in `kept` stay.
[[nodiscard]] std::string printable(std::string_view text, std::string_view kept = {});

// As one word of a command that can be pasted into a shell.
[[nodiscard]] std::string shell_word(std::string_view text);

} // namespace cli
