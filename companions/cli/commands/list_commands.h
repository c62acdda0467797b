// list and info: what there is, without opening a camera.
#pragma once

#include "command_line.h"

namespace cli {

void add_list_commands(command_line& line);

} // namespace cli
