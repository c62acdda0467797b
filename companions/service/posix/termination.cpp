#include "termination.h"

#include <sys/time.h>
#include <unistd.h>

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
    // Not a thread: there may be none to be had.
    signal(SIGALRM, [](int) { _exit(0); });
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr); // a parent may have blocked it
    itimerval timer{};
    timer.it_value = {time.count() / 1000, time.count() % 1000 * 1000};
    setitimer(ITIMER_REAL, &timer, nullptr);
}

} // namespace service
