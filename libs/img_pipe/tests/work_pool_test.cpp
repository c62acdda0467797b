#include <img_pipe/work_pool.h>
#include <support/eventually.h>
#include <support/failing_memory.h>
#include <support/temporary_folder.h>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>
#include <vector>

using namespace img_pipe;
using test_support::entries_of;
using test_support::eventually;

TEST(WorkPool, Split) {
    struct {
        std::int32_t height, threads, pieces, lines;
    } const rows[] = {{127, 8, 1, 127},  {130, 8, 2, 64},    {128, 2, 2, 64},   {1000, 1, 1, 1000},
                      {1000, 4, 4, 248}, {1024, 64, 16, 64}, {3000, 0, 1, 3000}};
    for (const auto& row : rows) {
        const line_split split = split_lines(row.height, row.threads);
        EXPECT_EQ(split.pieces, row.pieces) << row.height;
        EXPECT_EQ(split.piece_lines, row.lines) << row.height;
    }
}

// The limit binds those alone that ask for all threads, from the next image on.
TEST(WorkPool, LimitOfThreads) {
    using parallel_pixkit::pixkit_work_pool;
    const unsigned processors = std::max(std::thread::hardware_concurrency(), 1U);
    concurrency all, three;
    struct {
        unsigned limit;
        std::int32_t threads;
    } const rows[] = {{1, 1},
                      {2, static_cast<std::int32_t>(std::min(processors, 2U))},
                      {0, 1},
                      {16, static_cast<std::int32_t>(std::min(processors, 16U))}};
    EXPECT_EQ(pixkit_work_pool::thread_limit(), pixkit_work_pool::default_thread_limit);
    for (const auto& row : rows) {
        pixkit_work_pool::set_thread_limit(row.limit);
        all.set_concurrency(0);
        three.set_concurrency(3);
        EXPECT_EQ(all.threads(), row.threads) << row.limit;
        EXPECT_EQ(all.pool() != nullptr, row.threads > 1) << row.limit;
        EXPECT_EQ(three.threads(), 3) << row.limit;
    }
    pixkit_work_pool::set_thread_limit(pixkit_work_pool::default_thread_limit);
}

// As many pieces at once as max_concurrency says: each waits for all others to have begun.
TEST(WorkPool, RunsAsManyAtOnceAsAskedFor) {
    std::vector<std::uint8_t> data(64 * 24);
    const img_descriptor view = make_view(data.data(), 64 * 24, fcc("Y800"), 1, 64 * 24);
    concurrency on;
    for (const int threads : {2, 20, 1, 3}) { // more than the limit, too
        on.set_concurrency(static_cast<unsigned>(threads));
        std::atomic<int> begun{0};
        run_parallel(
            on,
            [&](const img_descriptor&, const img_descriptor&, std::int32_t, std::int32_t) {
                ++begun;
                EXPECT_TRUE(test_support::eventually([&] { return begun == threads; }));
            },
            view, view);
        EXPECT_EQ(begun.load(), threads);
    }
}

// Every line once, whatever the threads; several pipes share the pool, and it comes and goes under them.
TEST(WorkPool, EveryLineOnceFromSeveralPipes) {
    const auto pipe = [] {
        for (const unsigned threads : {4U, 1U, 16U, 0U, 3U}) {
            concurrency on;
            on.set_concurrency(threads);
            std::vector<std::uint8_t> data(523 * 8);
            const img_descriptor view = make_view(data.data(), 523 * 8, fcc("Y800"), 8, 523);
            for (int round = 0; round < 20; ++round)
                run_parallel(
                    on,
                    [](const img_descriptor& to, const img_descriptor&, std::int32_t first, std::int32_t) {
                        EXPECT_EQ(first % 4, 0);
                        for (std::int32_t y = 0; y < to.height; ++y)
                            ++to.plane_data[0].data[y * to.plane_data[0].stride];
                    },
                    view, view);
            for (std::size_t y = 0; y < 523; ++y) ASSERT_EQ(data[y * 8], 20) << y;
        }
    };
    std::vector<std::jthread> pipes;
    for (int i = 0; i < 4; ++i) pipes.emplace_back(pipe);
}

namespace {

// A pipe of two threads whose call has one piece for the only worker. The caller's own piece, the first, can be held.
struct two_thread_pipe {
    two_thread_pipe() { on.set_concurrency(2); }

    // Calls `piece` with 0 and 1.
    void run(const std::function<void(std::int32_t)>& piece) {
        run_parallel(
            on, [&](const img_descriptor&, const img_descriptor&, std::int32_t, std::int32_t number) { piece(number); },
            view, view);
    }

    std::vector<std::uint8_t> data = std::vector<std::uint8_t>(128);
    img_descriptor view = make_view(data.data(), 128, fcc("Y800"), 1, 128);
    concurrency on;
};

bool is_set(const std::shared_future<void>& event) {
    return event.wait_for(std::chrono::seconds{20}) == std::future_status::ready;
}

} // namespace

TEST(WorkPool, NoCallWaitsForAnothersPieces) {
    two_thread_pipe busy, other;
    std::promise<void> begun, done;
    const std::shared_future<void> worker_is_busy = begun.get_future(), other_is_done = done.get_future();
    std::jthread caller([&] {
        busy.run([&](std::int32_t piece) {
            if (piece == 0) {
                EXPECT_TRUE(is_set(worker_is_busy));
            } else {
                begun.set_value();
                EXPECT_TRUE(is_set(other_is_done)) << "it waits for the worker";
            }
        });
    });
    ASSERT_TRUE(is_set(worker_is_busy));
    std::atomic<int> pieces{0};
    other.run([&](std::int32_t) { ++pieces; });
    EXPECT_EQ(pieces, 2);
    done.set_value();
}

TEST(WorkPool, WhoComesFirstIsServedFirst) {
    constexpr std::size_t calls = 3;
    two_thread_pipe pipes[calls];
    std::promise<void> queued[calls], begun[calls], go;
    const std::shared_future<void> all_queued = go.get_future();
    std::vector<std::size_t> order; // the one worker's
    std::vector<std::jthread> callers;
    for (std::size_t call = 0; call < calls; ++call) {
        callers.emplace_back([&, call, is_begun = begun[call].get_future().share()] {
            pipes[call].run([&](std::int32_t piece) {
                if (piece == 0) {
                    queued[call].set_value();
                    EXPECT_TRUE(is_set(is_begun)); // or the caller would run both
                    return;
                }
                order.push_back(call);
                begun[call].set_value();
                EXPECT_TRUE(is_set(all_queued)); // while the first is held, the others come
            });
        });
        ASSERT_TRUE(is_set(queued[call].get_future().share()));
    }
    go.set_value();
    callers.clear();
    EXPECT_EQ(order, (std::vector<std::size_t>{0, 1, 2}));
}

// The pool goes with the last who has asked for it, also when memory lacked for a part of it.
TEST(WorkPool, LeavesNoThreadWhenMemoryIsShort) {
    std::thread{[] {}}.join(); // a sanitizer's own thread comes with the first one
    const auto before = entries_of("/proc/self/task");
    for (int successes = 0;; ++successes) {
        SCOPED_TRACE(successes);
        {
            concurrency on;
            failing_memory::fail(successes);
            try {
                on.set_concurrency(4);
            } catch (const std::bad_alloc&) {
                EXPECT_EQ(on.pool(), nullptr);
            }
            if (failing_memory::stop() == 0) break; // there was enough
        }
        // A thread that has been joined may still be listed for a moment.
        ASSERT_TRUE(eventually([&] { return entries_of("/proc/self/task") <= before; }));
    }
}

// Pools come and go on some threads while another one forks: a child gets a pool of its own.
TEST(WorkPool, AChildNeverWaitsForWhatAThreadOfItsParentHeld) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "sanitizers do not follow a fork of threads";
#endif
    std::atomic<bool> over{false};
    std::vector<std::jthread> busy;
    for (int i = 0; i < 4; ++i)
        busy.emplace_back([&] {
            while (!over) {
                concurrency on;
                on.set_concurrency(2);
            }
        });
    int children = 0, in_time = 0;
    for (; children < 50 && in_time == children; ++children) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(10);
            concurrency on;
            on.set_concurrency(2);
            _exit(0);
        }
        int status = -1;
        in_time += child > 0 && waitpid(child, &status, 0) == child && status == 0 ? 1 : 0;
    }
    over = true;
    EXPECT_EQ(in_time, children);
}
