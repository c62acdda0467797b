// grab: frames from a camera, counted, checked and written to files.
#pragma once

#include "command_line.h"

namespace cli {

void add_grab_command(command_line& line);

} // namespace cli
