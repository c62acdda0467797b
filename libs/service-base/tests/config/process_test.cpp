#include <gds_helper/process.h>

#include <gtest/gtest.h>

#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <thread>

namespace {

int nice_here() { return getpriority(PRIO_PROCESS, static_cast<id_t>(gettid())); }

} // namespace

// A pool's threads may be the first that a receive thread needs, and would compete with all that receive.
TEST(Process, ARaisedThreadRaisesNoOtherWithIt) {
    const int own = sched_getscheduler(0);
    if (nice_here() <= -5 || own == SCHED_FIFO || own == SCHED_RR) GTEST_SKIP() << "raised already";
    int nice = -1, policy = -1, raised = 0;
    std::thread{[&] {
        static_cast<void>(gds_helper::raise_thread_priority());
        raised = sched_getscheduler(0);
        std::thread{[&] {
            nice = nice_here();
            policy = sched_getscheduler(0);
        }}.join();
    }}.join();
    EXPECT_NE(raised & SCHED_RESET_ON_FORK, 0) << "takes no right";
    EXPECT_GE(nice, 0);
    EXPECT_EQ(policy, own);
}

TEST(Process, AThreadOfHigherPriorityIsNotLowered) {
    std::thread{[] {
        if (setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), -15) != 0) GTEST_SKIP() << "takes a right";
        EXPECT_TRUE(gds_helper::raise_thread_priority());
        EXPECT_EQ(nice_here(), -15);
        sched_param parameters{.sched_priority = 50};
        if (sched_setscheduler(0, SCHED_FIFO, &parameters) != 0) return;
        EXPECT_TRUE(gds_helper::raise_thread_priority());
        EXPECT_EQ(sched_getscheduler(0), SCHED_FIFO);
    }}.join();
}
