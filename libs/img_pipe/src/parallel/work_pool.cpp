#include "process.h"
#include "thread_name.h"

#include <img_pipe/work_pool.h>

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace img_pipe {
namespace parallel_pixkit {

namespace {

std::atomic<unsigned> most_threads{pixkit_work_pool::default_thread_limit};

// The process's one pool. `registry` guards its existence, the pool's own lock its queue. In a child made by fork the
// pool of its parent has no threads, and its lock may be held by nobody that is there: it is left alone for ever. The
// registry is not: no fork happens while another thread holds it.
class shared_pool final : public pixkit_work_pool {
public:
    static shared_pool* take(unsigned threads) {
        const std::lock_guard guard(registry);
        if (current == nullptr || current->is_foreign()) current = new shared_pool;
        ++current->references;
        current->grow(threads);
        return current;
    }

    void add_reference() override {
        const std::lock_guard guard(registry);
        ++references;
    }

    void release() override {
        if (is_foreign()) return;
        {
            const std::lock_guard guard(registry);
            if (--references != 0) return;
            current = nullptr;
        }
        delete this;
    }

    bool queue_items(std::span<func_caller* const> items) override {
        if (is_foreign()) return false;
        {
            const std::lock_guard guard(lock);
            if (stopping || workers.empty()) return false;
            // Room is kept from frame to frame; it grows with the most pieces ever queued at once.
            queue.insert(queue.end(), items.begin(), items.end());
        }
        if (items.size() == 1)
            wake.notify_one();
        else
            wake.notify_all();
        return true;
    }

    func_caller* take_back(const std::atomic<std::int32_t>& not_done) override {
        const std::lock_guard guard(lock);
        const auto found = std::ranges::find(queue, &not_done, &func_caller::not_done);
        if (found == queue.end()) return nullptr;
        func_caller* item = *found;
        queue.erase(found);
        return item;
    }

private:
    bool is_foreign() const { return process_id() != owner; }

    ~shared_pool() override {
        {
            const std::lock_guard guard(lock);
            stopping = true;
        }
        wake.notify_all();
        for (std::thread& worker : workers) worker.join();
    }

    void grow(unsigned threads) {
        const std::lock_guard guard(lock);
        try {
            while (workers.size() < threads) workers.emplace_back([this, index = workers.size()] { work(index); });
        } catch (const std::exception&) {
            // No more threads, or no memory for one: those there are do the work, or the caller alone.
        }
    }

    void work(std::size_t index) {
        name_this_thread(("pixkit" + std::to_string(index % 100)).c_str());
        std::unique_lock held(lock);
        for (;;) {
            wake.wait(held, [this] { return stopping || !queue.empty(); });
            if (queue.empty()) return;
            func_caller* item = queue.front();
            queue.erase(queue.begin()); // a few pointers move up
            held.unlock();
            std::atomic<std::int32_t>* not_done = item->not_done;
            (*item)();
            // The caller may end the item, and the counter with it, as soon as the count is 0.
            if (not_done->fetch_sub(1, std::memory_order_acq_rel) == 1) not_done->notify_one();
            held.lock();
        }
    }

    static inline std::mutex registry;
    [[maybe_unused]] static inline const bool registry_is_whole_in_children =
        around_fork([] { registry.lock(); }, [] { registry.unlock(); });
    static inline shared_pool* current = nullptr;
    const std::int64_t owner = process_id();
    std::size_t references = 0; // guarded by registry
    std::mutex lock;
    std::condition_variable wake;
    std::vector<func_caller*> queue;
    std::vector<std::thread> workers;
    bool stopping = false;
};

} // namespace

void pixkit_work_pool::set_thread_limit(unsigned limit) { most_threads.store(std::max(limit, 1U)); }

unsigned pixkit_work_pool::thread_limit() { return most_threads.load(std::memory_order_relaxed); }

unsigned pixkit_work_pool::thread_count(unsigned max_concurrency) {
    if (max_concurrency != 0) return max_concurrency;
    static const unsigned processors = std::thread::hardware_concurrency(); // a system call
    return std::clamp(processors, 1U, thread_limit());
}

pixkit_work_pool* pixkit_work_pool::acquire(unsigned threads) { return shared_pool::take(threads); }

bool run_and_wait(worker_thread_pool& pool, std::span<func_caller* const> items) {
    std::atomic<std::int32_t> not_done{static_cast<std::int32_t>(items.size()) - 1};
    for (func_caller* item : items) item->not_done = &not_done;
    if (!pool.queue_items(items.subspan(1))) return false;
    (*items[0])();
    while (func_caller* item = pool.take_back(not_done)) {
        (*item)();
        not_done.fetch_sub(1, std::memory_order_relaxed);
    }
    for (std::int32_t left = not_done.load(std::memory_order_acquire); left != 0;
         left = not_done.load(std::memory_order_acquire))
        not_done.wait(left, std::memory_order_acquire);
    return true;
}

} // namespace parallel_pixkit

concurrency::~concurrency() {
    if (held != nullptr) held->release();
}

void concurrency::set_concurrency(unsigned max_concurrency) {
    const unsigned threads = std::min(parallel_pixkit::pixkit_work_pool::thread_count(max_concurrency),
                                      static_cast<unsigned>(parallel_pixkit::max_pieces));
    if (static_cast<std::int32_t>(threads) == count) return;
    parallel_pixkit::pixkit_work_pool* before = held;
    held = threads > 1 ? parallel_pixkit::pixkit_work_pool::acquire(threads - 1) : nullptr;
    if (before != nullptr) before->release();
    count = static_cast<std::int32_t>(threads);
}

} // namespace img_pipe
