// The service's real process when descriptors, memory or threads run out, and when one user takes all it can get: the
// others' sessions go on.
#include "support/raw_client.h"
#include "support/test_system.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

using namespace test_support;

namespace {

// What the process may open from here on, until this goes.
class descriptor_limit final {
public:
    descriptor_limit(int process, rlim_t most) : pid(process) {
        EXPECT_EQ(prlimit(pid, RLIMIT_NOFILE, nullptr, &before), 0);
        const rlimit now{most, before.rlim_max};
        EXPECT_EQ(prlimit(pid, RLIMIT_NOFILE, &now, nullptr), 0);
    }
    ~descriptor_limit() { EXPECT_EQ(prlimit(pid, RLIMIT_NOFILE, &before, nullptr), 0); }
    descriptor_limit(const descriptor_limit&) = delete;
    descriptor_limit& operator=(const descriptor_limit&) = delete;

private:
    const int pid;
    rlimit before{};
};

} // namespace

TEST(ServiceLack, WithoutDescriptorsNoInterfaceIsTakenForGone) {
    test_system own{{"--log-level", "2", "--scan-interval", "50"}};
    own.start_camera(small({"--frame-rate", "50"}));
    own.start_logged_service();
    open_camera camera;
    camera.start();
    ASSERT_TRUE(camera.next_frame(5000));
    {
        const descriptor_limit none{own.service().pid(), 3};
        ASSERT_TRUE(eventually([&] { return holds(own.logged(), "The list of interfaces cannot be had"); }));
        for (int i = 0; i < 50; ++i) ASSERT_TRUE(camera.next_frame(5000)); // a second, and many searches
    }
    ASSERT_TRUE(eventually([&] { return holds(own.logged(), "There is a list of interfaces again"); }));
    camera.stop(); // over the control channel
    EXPECT_FALSE(holds(own.logged(), "is gone")) << own.logged();
    EXPECT_FALSE(holds(own.logged(), "is lost")) << own.logged();
}
