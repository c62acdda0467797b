#include <gds_helper/line_budget.h>
#include <gds_helper/process.h>
#include <ipc_rpc/executor_thread_pool.h>

#include <condition_variable>
#include <list>
#include <mutex>
#include <thread>
#include <vector>

namespace ipc_rpc {

namespace {

// Shared by the pool and its threads: a thread that destroys the pool from a task outlives it for a moment.
struct pool_state {
    std::mutex queue_mutex; // guards what follows
    std::condition_variable changed;
    std::list<std::function<void()>> tasks; // a list: an empty one costs no memory, at the end of all
    bool stopped = false;

    void work() {
        std::unique_lock lock{queue_mutex};
        for (;;) {
            changed.wait(lock, [&] { return stopped || !tasks.empty(); });
            if (stopped) return;
            std::function<void()> task = std::move(tasks.front());
            tasks.pop_front();
            lock.unlock();
            try {
                task();
            } catch (const std::exception&) {
                // No memory for an answer: whoever waits for one waits for the connection's end, not the process.
            }
            task = nullptr;
            lock.lock();
        }
    }
};

class thread_pool final : public executor_thread_pool_interface {
public:
    thread_pool(const std::string& name_prefix, std::size_t count) : state(std::make_shared<pool_state>()) {
        threads.reserve(count);
        for (std::size_t i = 0; i < count; ++i) {
            try {
                threads.emplace_back([state = state.shared(), name = name_prefix + std::to_string(i),
                                      lines = gds_helper::log::counted_lines::current()] {
                    const gds_helper::log::counted_lines counted{lines};
                    gds_helper::set_thread_name(name);
                    state->work();
                });
            } catch (...) {
                end(); // of those that have started
                throw;
            }
        }
    }

    ~thread_pool() override {
        if (state.is_foreign()) {
            for (auto& thread : threads) thread.detach();
            return;
        }
        end();
    }

    void push(std::function<void()> task) override {
        {
            const std::lock_guard lock{state->queue_mutex};
            state->tasks.push_back(std::move(task));
        }
        state->changed.notify_one();
    }

private:
    void end() {
        std::list<std::function<void()>> dropped;
        {
            const std::lock_guard lock{state->queue_mutex};
            state->stopped = true;
            dropped.swap(state->tasks);
        }
        state->changed.notify_all();
        for (auto& thread : threads) {
            if (thread.get_id() == std::this_thread::get_id()) {
                thread.detach();
            } else {
                thread.join();
            }
        }
    }

    gds_helper::process_local<pool_state> state;
    std::vector<std::thread> threads;
};

} // namespace

std::shared_ptr<executor_thread_pool_interface> make_executor_thread_pool(const std::string& name_prefix,
                                                                          std::size_t threads) {
    return std::make_shared<thread_pool>(name_prefix, threads);
}

} // namespace ipc_rpc
