// plan: how the cameras of one interface share its link.
#pragma once

#include "command_line.h"

namespace cli {

void add_plan_command(command_line& line);

} // namespace cli
