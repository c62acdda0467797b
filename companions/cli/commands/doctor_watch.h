// Where packets are lost beside a consumer that runs: doctor --watch.
#pragma once

#include "../consumer/session.h"

#include <cstdint>

namespace cli {

struct watch_options {
    double interval_s = 1;
    uint64_t count = 0; // of intervals; 0: until Ctrl-C
};

// Looks at the streams of all cameras that the library sees, as far as they go to this host: a line for each interval,
// the sum at the end. Cameras are opened read only. Exit code 1 when packets were lost here.
int watch_streams(const common_options& common, const watch_options& options);

} // namespace cli
