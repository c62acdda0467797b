// Two locks, never both held by one thread: the state's for the map, a registration's for its runs. Callbacks run
// without either.
#include "impl/ipc_call_base.h"

#include <ipc_rpc/executor_thread_pool.h>
#include <ipc_rpc/notification_registry.h>

#include <spdlog/logger.h>

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <map>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

namespace ipc_rpc {

struct notification_registry::registration {
    const std::function<void()> callback;
    const mode how;

    std::mutex run_mutex; // guards what follows
    std::condition_variable idle;
    std::uint64_t pending = 0; // runs that are owed and have not started
    bool scheduled = false;    // a pool job will look at `pending`, or does
    bool removed = false;
    bool running = false;
    std::thread::id runner;

    registration(std::function<void()> function, mode way) : callback(std::move(function)), how(way) {}

    void run_once() {
        {
            std::unique_lock lock{run_mutex};
            // Only a second dispatching thread could find it running.
            idle.wait(lock, [&] { return !running || runner == std::this_thread::get_id(); });
            if (removed || running) return;
            running = true;
            runner = std::this_thread::get_id();
        }
        try {
            callback();
        } catch (const std::exception& failure) {
            // No memory, mostly: this run is lost, but neither the runs to come nor whoever waits for its end.
            ipc_logger().error("A notification's callback failed with: {}", failure.what());
        }
        const std::lock_guard lock{run_mutex};
        running = false;
        runner = {};
        idle.notify_all();
    }

    // True when the caller has to push a job.
    bool owe_run() {
        const std::lock_guard lock{run_mutex};
        pending = how == mode::pool_unique ? 1 : pending + 1;
        return !std::exchange(scheduled, true);
    }

    // The job could not be pushed: what is owed runs with the next notification.
    void not_scheduled() {
        const std::lock_guard lock{run_mutex};
        scheduled = false;
    }

    void run_owed() {
        for (;;) {
            {
                const std::lock_guard lock{run_mutex};
                if (pending == 0 || removed) {
                    scheduled = false;
                    return;
                }
                --pending;
            }
            run_once();
        }
    }

    void remove_and_wait() {
        std::unique_lock lock{run_mutex};
        removed = true;
        idle.wait(lock, [&] { return !running || runner == std::this_thread::get_id(); });
    }
};

struct notification_registry::state {
    const std::size_t threads;

    std::mutex map_mutex; // guards what follows
    std::multimap<std::uint64_t, std::shared_ptr<registration>> entries;
    std::shared_ptr<executor_thread_pool_interface> pool;

    explicit state(std::size_t count) : threads(count) {}

    // map_mutex held. Throws std::system_error when there are no threads to be had.
    void need_pool() {
        if (!pool) pool = make_executor_thread_pool("clt-notify-", threads);
    }
};

notification_registry::notification_registry(std::size_t pool_threads)
    : shared(std::make_shared<state>(std::max<std::size_t>(pool_threads, 1))) {}

notification_registry::~notification_registry() {
    if (shared.is_foreign()) return;
    std::shared_ptr<executor_thread_pool_interface> pool;
    {
        const std::lock_guard lock{shared->map_mutex};
        pool.swap(shared->pool);
    }
    // Joins without the lock: a callback that still runs may want it.
}

std::error_code notification_registry::start_pool() {
    const std::lock_guard lock{shared->map_mutex};
    try {
        shared->need_pool();
    } catch (const std::system_error& failure) {
        return failure.code();
    } catch (const std::bad_alloc&) {
        return make_error_code(status::resource_exhausted);
    }
    return {};
}

notification_registry::token notification_registry::add(std::uint64_t id, std::function<void()> callback, mode how) {
    token made;
    made.registry = shared.shared();
    made.entry = std::make_shared<registration>(std::move(callback), how);
    made.owner_process = gds_helper::process_id();
    made.id = id;
    const std::lock_guard lock{shared->map_mutex};
    if (how != mode::direct) shared->need_pool();
    shared->entries.emplace(id, made.entry);
    return made;
}

notification_registry::token notification_registry::register_notification(std::uint64_t id,
                                                                          std::function<void()> callback) {
    return add(id, std::move(callback), mode::direct);
}
notification_registry::token notification_registry::register_for_pool(std::uint64_t id,
                                                                      std::function<void()> callback) {
    return add(id, std::move(callback), mode::pool);
}
notification_registry::token notification_registry::register_for_pool_unique_queued(std::uint64_t id,
                                                                                    std::function<void()> callback) {
    return add(id, std::move(callback), mode::pool_unique);
}

void notification_registry::notify(std::uint64_t id) {
    std::vector<std::shared_ptr<registration>> found;
    std::shared_ptr<executor_thread_pool_interface> pool;
    {
        const std::lock_guard lock{shared->map_mutex};
        const auto [first, last] = shared->entries.equal_range(id);
        for (auto entry = first; entry != last; ++entry) found.push_back(entry->second);
        pool = shared->pool;
    }
    bool short_of_memory = false;
    for (const auto& entry : found) {
        if (entry->how == mode::direct) {
            entry->run_once();
        } else if (pool && entry->owe_run()) {
            try {
                pool->push([entry] { entry->run_owed(); });
            } catch (const std::bad_alloc&) {
                entry->not_scheduled();
                short_of_memory = true; // those behind this one are owed their runs all the same
            }
        }
    }
    if (short_of_memory) throw std::bad_alloc{};
}

notification_registry::token& notification_registry::token::operator=(token&& other) noexcept {
    if (this == &other) return *this;
    reset();
    registry = std::move(other.registry);
    entry = std::move(other.entry);
    owner_process = other.owner_process;
    id = other.id;
    return *this;
}

void notification_registry::token::reset() noexcept {
    if (!entry) return;
    if (gds_helper::process_id() != owner_process) {
        // In a forked child nothing runs, and a lock or waiter of the parent's must not be touched.
        alignas(std::shared_ptr<registration>) std::byte kept[sizeof(entry)];
        ::new (static_cast<void*>(kept)) std::shared_ptr<registration>(std::move(entry));
        return;
    }
    if (const auto live = registry.lock()) {
        const std::lock_guard lock{live->map_mutex};
        const auto [first, last] = live->entries.equal_range(id);
        const auto found = std::find_if(first, last, [&](const auto& item) { return item.second == entry; });
        if (found != last) live->entries.erase(found);
    }
    entry->remove_and_wait();
    entry.reset();
}

} // namespace ipc_rpc
