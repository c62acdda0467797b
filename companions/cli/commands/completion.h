// Completion for shells, with the names that the camera at hand has.
#pragma once

#include "command_line.h"

namespace cli {

// The command "completion bash|zsh|fish", which prints a script, and the hidden "complete" that those scripts call.
void add_completion_command(command_line& line);

} // namespace cli
