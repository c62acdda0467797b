// What keeps frames from coming, and the command that mends it.
#pragma once

#include "session.h"

namespace cli {

// Exit code 0 when nothing is wrong.
int doctor(const common_options& common);

} // namespace cli
