// support-bundle: what somebody needs who is to tell from afar why cameras do not work.
#pragma once

#include "command_line.h"

namespace cli {

void add_support_bundle_command(command_line& line);

} // namespace cli
