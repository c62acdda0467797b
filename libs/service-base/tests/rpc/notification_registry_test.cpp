// Who is called, on which thread, how often, and what removal waits for. Steps are held by latches.
#include <ipc_rpc/notification_registry.h>
#include <support/failing_memory.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <latch>
#include <new>
#include <optional>
#include <semaphore>
#include <thread>

using ipc_rpc::notification_registry;

namespace {

using namespace std::chrono_literals;

notification_registry::token add(notification_registry& registry, int mode, std::function<void()> callback) {
    if (mode == 0) return registry.register_notification(1, std::move(callback));
    if (mode == 1) return registry.register_for_pool(1, std::move(callback));
    return registry.register_for_pool_unique_queued(1, std::move(callback));
}

} // namespace

TEST(NotificationRegistry, CallsThoseOfTheNumberOnTheDispatchingThread) {
    notification_registry registry;
    int first = 0, second = 0, other = 0;
    const auto here = std::this_thread::get_id();
    auto a = registry.register_notification(7, [&] { first += std::this_thread::get_id() == here ? 1 : 100; });
    auto b = registry.register_notification(7, [&] { ++second; });
    const auto c = registry.register_notification(8, [&] { ++other; });
    registry.notify(7);
    registry.notify(9);
    a.reset();
    b = {};
    registry.notify(7);
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 1);
    EXPECT_EQ(other, 0);
}

// One run is held; what is raised meanwhile is owed: each time, or once.
TEST(NotificationRegistry, ThePoolRunsEachNotificationOrJoinsThoseThatWait) {
    for (const bool unique : {false, true}) {
        notification_registry registry;
        std::binary_semaphore started{0}, go_on{0};
        std::counting_semaphore<> ran{0};
        std::atomic<int> runs{0}, at_once{0};
        const auto body = [&] {
            EXPECT_EQ(++at_once, 1) << "runs of one registration never overlap";
            if (++runs == 1) {
                started.release();
                go_on.acquire();
            }
            --at_once;
            ran.release();
        };
        const auto token =
            unique ? registry.register_for_pool_unique_queued(1, body) : registry.register_for_pool(1, body);
        registry.notify(1);
        started.acquire();
        for (int i = 0; i < 5; ++i) registry.notify(1);
        go_on.release();
        const int due = unique ? 2 : 6;
        for (int i = 0; i < due; ++i) ran.acquire();
        EXPECT_EQ(runs, due);
        registry.notify(1);
        ran.acquire(); // a joined run does not lose the ones after it
        EXPECT_EQ(runs, due + 1);
    }
}

TEST(NotificationRegistry, RemovalWaitsForARunAndDropsWhatIsOwed) {
    for (const int mode : {0, 1, 2}) {
        notification_registry registry;
        // Room for the runs that are owed, which may begin before the remover has come to remove them.
        std::counting_semaphore<8> started{0}, go_on{0};
        std::atomic<int> runs{0};
        std::atomic<bool> finished{false};
        const auto body = [&] {
            ++runs;
            started.release();
            go_on.acquire();
            finished = true;
        };
        std::optional<notification_registry::token> token{add(registry, mode, body)};
        std::thread dispatcher{[&] { registry.notify(1); }};
        started.acquire();
        if (mode != 0) {
            registry.notify(1);
            registry.notify(1);
        }
        std::latch removing{1};
        std::thread remover{[&] {
            removing.count_down();
            token.reset();
            EXPECT_TRUE(finished) << "removed while it ran";
        }};
        removing.wait();
        std::this_thread::sleep_for(std::chrono::milliseconds{20}); // most often it waits in the removal then
        go_on.release(4);
        remover.join();
        dispatcher.join();
        const int runs_before = runs;
        registry.notify(1);
        std::this_thread::sleep_for(std::chrono::milliseconds{20}); // what is owed would run by now
        EXPECT_EQ(runs, runs_before);
    }
}

TEST(NotificationRegistry, ACallbackMayRemoveItselfAndAddOthers) {
    for (const bool pool : {false, true}) {
        notification_registry registry;
        std::counting_semaphore<> ran{0};
        std::atomic<int> runs{0}, added_runs{0};
        notification_registry::token token, added;
        const auto body = [&] {
            ++runs;
            added = registry.register_notification(2, [&] { ++added_runs; });
            token.reset();
            ran.release();
        };
        token = pool ? registry.register_for_pool(1, body) : registry.register_notification(1, body);
        registry.notify(1);
        ran.acquire();
        registry.notify(1);
        registry.notify(2);
        EXPECT_EQ(runs, 1);
        EXPECT_EQ(added_runs, 1);
    }
}

TEST(NotificationRegistry, ACallbackThatThrowsRunsAgainAndCanBeRemoved) {
    for (const int mode : {0, 1, 2}) {
        SCOPED_TRACE(mode);
        notification_registry registry;
        std::counting_semaphore<> ran{0};
        std::atomic<int> runs{0};
        auto token = add(registry, mode, [&] {
            ran.release();
            if (++runs == 1) throw std::bad_alloc{};
        });
        EXPECT_NO_THROW(registry.notify(1));
        EXPECT_TRUE(ran.try_acquire_for(20s));
        EXPECT_NO_THROW(registry.notify(1));
        EXPECT_TRUE(ran.try_acquire_for(20s)) << "no run after the one that threw";
        std::binary_semaphore removed{0};
        std::thread remover{[&] {
            token.reset();
            removed.release();
        }};
        // A removal that waits for ever can be neither joined nor left.
        if (!removed.try_acquire_for(20s)) {
            ADD_FAILURE() << "the removal waits for ever";
            std::abort();
        }
        remover.join();
    }
}

TEST(NotificationRegistry, ANotificationWithoutMemoryDoesNotStopTheNext) {
    for (const int mode : {1, 2}) {
        for (int successes = 0, failed = 1; failed != 0; ++successes) {
            SCOPED_TRACE(testing::Message{} << mode << " " << successes);
            notification_registry registry;
            std::counting_semaphore<> ran{0};
            const auto token = add(registry, mode, [&] { ran.release(); });
            const auto another = add(registry, mode, [&] { ran.release(); });
            failing_memory::fail(successes);
            try {
                registry.notify(1);
            } catch (const std::bad_alloc&) { // the allocator tells it, too
            }
            failed = failing_memory::stop();
            registry.notify(1);
            ASSERT_TRUE(ran.try_acquire_for(20s));
            ASSERT_TRUE(ran.try_acquire_for(20s)) << "the other one";
        }
    }
}

TEST(NotificationRegistry, TokensOutliveTheRegistry) {
    std::optional<notification_registry> registry{std::in_place};
    auto token = registry->register_for_pool(1, [] {});
    registry.reset();
    EXPECT_TRUE(token);
    token.reset();
    EXPECT_FALSE(token);
}
