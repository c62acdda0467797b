// save and load: a camera's settings as a file.
#pragma once

#include "command_line.h"

namespace cli {

void add_settings_commands(command_line& line);

} // namespace cli
