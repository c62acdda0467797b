#include "termination.h"

#include <unistd.h>

#include <thread>

namespace service {

termination::termination() {
    sigemptyset(&signals);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, number);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGPIPE, SIG_IGN);
}

void termination::wait() const {
    int caught = 0;
    sigwait(&signals, &caught);
}

void termination::end_within(std::chrono::milliseconds time) {
    std::thread{[time] {
        std::this_thread::sleep_for(time);
        _exit(0);
    }}.detach();
}

} // namespace service
