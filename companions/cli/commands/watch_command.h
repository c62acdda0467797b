// watch: the figures of running cameras, once a second.
#pragma once

#include "command_line.h"

namespace cli {

void add_watch_command(command_line& line);

} // namespace cli
