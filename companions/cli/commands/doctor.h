// What keeps frames from coming, and what mends it for good.
#pragma once

#include "../consumer/session.h"

namespace cli {

// Exit code 1 when a finding is bad.
int doctor(const common_options& common);

} // namespace cli
