// features, describe, get, set and exec.
#pragma once

#include "command_line.h"

namespace cli {

void add_feature_commands(command_line& line);

} // namespace cli
