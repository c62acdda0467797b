// What this process has used of the processors.
#pragma once

namespace cli {

// User and system time of all its threads, seconds.
[[nodiscard]] double cpu_seconds();

} // namespace cli
