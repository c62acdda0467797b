// Load, use, unload, again: nothing may be left in the consumer's process.
#include "support/built.h"
#include "support/test_system.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace test_support;

namespace {

void one_round(const char* cti, bool orderly = true) {
    open_camera camera{test_system::serial(0), cti};
    camera.start();
    for (int i = 0; i < 10; ++i) ASSERT_TRUE(camera.next_frame(5000));
    if (orderly) {
        camera.stop();
    } else { // handles that follow are dead: closing them is refused, and no more
        EXPECT_EQ(camera.lib->GCCloseLib(), GenTL::GC_ERR_SUCCESS);
    }
}

} // namespace

TEST(Lifetime, TwentyRoundsLeaveNothing) {
    small_system own{{"--frame-rate", "200"}};
    one_round(built::cti); // what the C library allocates once
    const size_t threads = entries_of("/proc/self/task");
    const size_t descriptors = entries_of("/proc/self/fd");
    for (int round = 0; round < 20; ++round) {
        SCOPED_TRACE(round);
        ASSERT_NO_FATAL_FAILURE(one_round(round % 2 == 0 ? built::cti : built::multipart_cti, round % 4 < 2));
    }
    // A thread that was joined stays in the list for a moment.
    EXPECT_TRUE(eventually([&] { return entries_of("/proc/self/task") <= threads; }));
    EXPECT_EQ(entries_of("/proc/self/fd"), descriptors);
    EXPECT_FALSE(holds(read_file("/proc/self/maps"), "/dev/shm/"));
}

TEST(Lifetime, SymbolsOfTheConsumerDoNotReachTheLibrary) {
    if (built::sanitized) GTEST_SKIP() << "sanitizers refuse RTLD_DEEPBIND";
    small_system own;
    void* deep = dlopen(built::cti, RTLD_NOW | RTLD_DEEPBIND);
    ASSERT_NE(deep, nullptr) << dlerror();
    one_round(built::cti); // the same mapping, bound deeply
    dlclose(deep);
}

// However a consumer's process ends, and whenever it closes the library in that: it ends, and by itself.
TEST(Lifetime, AProcessEndsWhateverIsOpenAndWhoeverCloses) {
    small_system own{{"--frame-rate", "200"}};
    for (const std::string open : {"nothing", "system", "stream"}) {
        for (const std::string closer : {"early handler", "late handler", "global", "nobody", "unloading"}) {
            SCOPED_TRACE(open + " open, closed by " + closer);
            process consumer{{built::test_tool("exit_consumer"), built::cti, test_system::serial(0), open, closer},
                             own.folder() / (open + closer)};
            if (!eventually([&] { return !consumer.running(); })) {
                ADD_FAILURE() << "hangs";
                consumer.signal(SIGKILL);
            }
            EXPECT_EQ(consumer.wait(), 0);
            const bool closes = closer != "nobody" && closer != "unloading";
            EXPECT_EQ(consumer.output(), closes ? "ends\nclosed by " + closer + ": 0\n" : "ends\n");
        }
    }
}

// Whatever threads the parent's stream has: none of them is the child's.
TEST(Lifetime, AForkedChildExits) {
    if (built::sanitized) GTEST_SKIP() << "sanitizers do not follow a fork of threads";
    small_system own;
    for (const std::string with : {"nothing more", "a transform", "a transform on a thread of its own"}) {
        SCOPED_TRACE(with);
        open_camera camera;
        if (with != "nothing more") {
            const cli::node_map device{*camera.lib, camera.device->get()};
            cli::set_from_text(cli::require_node(device, "DataStreamTransformMaxConcurrency"), "2");
            cli::set_from_text(cli::require_node(device, "ImageTransformQueueMode"),
                               with == "a transform" ? "UseDirectTransform" : "UseDedicatedThread");
            camera.set("SoftwareGamma", "0.5");
            camera.set("SoftwareImageProcessingEnable", "true");
        }
        camera.start();
        ASSERT_TRUE(camera.next_frame(5000));
        const pid_t child = fork();
        if (child == 0) std::_Exit(camera.lib->GCCloseLib() == GenTL::GC_ERR_SUCCESS ? 0 : 1);
        int status = 0;
        if (!eventually([&] { return waitpid(child, &status, WNOHANG) == child; })) {
            ADD_FAILURE() << "the child hangs";
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
        }
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
        EXPECT_TRUE(camera.next_frame(5000)) << "the parent's stream goes on";
        camera.stop();
    }
}
