#include <gds_helper/process.h>

#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace gds_helper {

std::int64_t process_id() noexcept { return getpid(); }

void set_thread_name(std::string_view name) noexcept {
    char text[16]{}; // all that the kernel takes, the final zero with it
    name.copy(text, sizeof text - 1);
    pthread_setname_np(pthread_self(), text);
}

bool raise_thread_priority() noexcept {
    // On Linux a nice value belongs to a thread; a small round-robin priority is the other way to be allowed more.
    constexpr int raised = -5;
    const auto thread = static_cast<id_t>(syscall(SYS_gettid));
    const int policy = sched_getscheduler(0);
    const int kind = policy & ~SCHED_RESET_ON_FORK;
    // One that was given as much or more keeps it, and so do the threads that it starts: that was somebody's choice.
    if (policy >= 0 && (kind == SCHED_FIFO || kind == SCHED_RR || kind == SCHED_DEADLINE)) return true;
    if (getpriority(PRIO_PROCESS, thread) <= raised) return true;
    // Threads that this one starts are not raised with it, those of the pixel pool among them.
    sched_param parameters{};
    if (policy >= 0 && sched_getparam(0, &parameters) == 0)
        static_cast<void>(sched_setscheduler(0, policy | SCHED_RESET_ON_FORK, &parameters));
    if (setpriority(PRIO_PROCESS, thread, raised) == 0) return true;
    parameters.sched_priority = sched_get_priority_min(SCHED_RR);
    return sched_setscheduler(0, SCHED_RR | SCHED_RESET_ON_FORK, &parameters) == 0;
}

void sleep_precisely() noexcept {
    constexpr unsigned long slack = 1000; // nanoseconds; 50 000 by default
    prctl(PR_SET_TIMERSLACK, slack, 0, 0, 0);
}

} // namespace gds_helper
