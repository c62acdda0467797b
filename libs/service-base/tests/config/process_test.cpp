#include <gds_helper/process.h>

#include <gtest/gtest.h>

#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <thread>

// A pool's threads may be the first that a receive thread needs, and would compete with all that receive. Where the
// system grants no priority there is none to be passed on.
TEST(Process, ARaisedThreadRaisesNoOtherWithIt) {
    int nice = -1, policy = -1;
    std::thread{[&] {
        static_cast<void>(gds_helper::raise_thread_priority());
        std::thread{[&] {
            nice = getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()));
            policy = sched_getscheduler(0) & ~SCHED_RESET_ON_FORK;
        }}.join();
    }}.join();
    EXPECT_GE(nice, 0);
    EXPECT_EQ(policy, SCHED_OTHER);
}
