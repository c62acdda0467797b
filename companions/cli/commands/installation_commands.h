// env and self-test: what an installation of the producer needs to be found, and the proof that it works.
#pragma once

#include "command_line.h"

namespace cli {

void add_installation_commands(command_line& line);

} // namespace cli
