// The signals that end the service, and the time in which it ends.
#pragma once

#include <chrono>

#include <signal.h>

namespace service {

// SIGINT, SIGTERM and SIGHUP. Made before any other thread, which all leave these signals to wait().
class termination final {
public:
    termination();
    void wait() const;
    // From here on the process ends within the time whatever its threads do; names that it left in shared memory are
    // removed by the next service.
    static void end_within(std::chrono::milliseconds time);

private:
    sigset_t signals{};
};

} // namespace service
