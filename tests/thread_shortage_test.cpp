// A system that gives no more threads: the consumer reads a code, and nothing is left of the attempt.
#include "support/built.h"
#include "support/test_system.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>

#include <cerrno>
#include <dlfcn.h>
#include <pthread.h>

using namespace test_support;

namespace {

std::atomic<int> until_failure{-1}; // threads until one cannot be made; none below zero

int64_t count_of(void* file, const char* function) { return reinterpret_cast<int64_t (*)()>(dlsym(file, function))(); }

} // namespace

// In place of the C library's for everything in this process, the library under test included.
extern "C" __attribute__((visibility("default"))) int
pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument) noexcept {
    static const auto next = reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    if (until_failure >= 0 && until_failure.fetch_sub(1) == 0) return EAGAIN;
    return next(thread, attributes, body, argument);
}

TEST(ThreadShortage, AnyThreadThatCannotBeMadeGivesACode) {
    small_system own;
    void* kept = dlopen(built::cti, RTLD_NOW | RTLD_LOCAL); // the counts live as long as the mapping
    ASSERT_NE(kept, nullptr) << dlerror();
    std::vector<std::string> answers;
    for (bool failed = true; failed && answers.size() < 40; failed = until_failure == -1) {
        const size_t successes = answers.size();
        until_failure = static_cast<int>(successes);
        std::string answer = "none";
        try {
            open_camera camera;
            camera.start();
            EXPECT_GE(count_of(kept, "HandleMapCount"), 4) << "system, interface, device, stream";
            EXPECT_GE(count_of(kept, "ObjectTrackerCount"), 4);
            camera.stop();
        } catch (const cli::call_failed& failure) {
            answer = failure.call + ": " + failure.reason;
        }
        SCOPED_TRACE(testing::Message{} << successes << " threads, then " << answer);
        EXPECT_EQ(count_of(kept, "HandleMapCount"), 0);
        EXPECT_EQ(count_of(kept, "ObjectTrackerCount"), 0);
        answers.push_back(answer);
    }
    until_failure = -1;
    dlclose(kept);
    EXPECT_EQ(answers.back(), "none") << "with all the threads it needs";
    answers.pop_back();
    using testing::AnyOf;
    using testing::StartsWith;
    EXPECT_THAT(answers, testing::Each(AnyOf(StartsWith("TLOpen: Failed to connect to service"),
                                             StartsWith("DSStartAcquisition: Failed to "))));
    EXPECT_GE(answers.size(), 9U) << "those of the connection, the notifications and the stream";
}
