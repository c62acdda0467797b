#include "process.h"

#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

namespace camera_sim::posix {

namespace {

sigset_t ending_signals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

} // namespace

termination::termination(bool with_parent) {
    const auto set = ending_signals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    if (!with_parent) return;
    const pid_t parent = ::getppid();
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != parent) ::raise(SIGTERM); // it ended before the request was made
}

void termination::wait() const {
    const auto set = ending_signals();
    int got = 0;
    sigwait(&set, &got);
}

void write_text(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const auto written = ::write(descriptor, text.data(), text.size());
        if (written <= 0) return;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

} // namespace camera_sim::posix
