#include <gds_gentl_producer/async_deliver_queue.h>

#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

namespace gds_producer {

struct async_deliver_queue::state {
    std::mutex outer; // guards thread; taken before inner
    std::jthread thread;
    std::mutex inner; // guards slot
    std::condition_variable_any filled;
    void* slot = nullptr;
    std::function<void(void*)> handler; // constant while the thread runs

    void* take() {
        const std::lock_guard guard{inner};
        return std::exchange(slot, nullptr);
    }

    void thread_main(const std::stop_token& stop_requested) {
        gds_helper::set_thread_name("gds-buf-deliver");
        std::unique_lock held{inner};
        while (filled.wait(held, stop_requested, [this] { return slot != nullptr; }) &&
               !stop_requested.stop_requested()) {
            void* frame = std::exchange(slot, nullptr);
            held.unlock();
            handler(frame);
            held.lock();
        }
    }
};

async_deliver_queue::async_deliver_queue() : own(std::make_shared<state>()) {}

void async_deliver_queue::start(std::function<void(void*)> handler) {
    if (own.is_foreign()) own = gds_helper::process_local{std::make_shared<state>()};
    const std::lock_guard guard{own->outer};
    if (own->thread.joinable()) return;
    own->handler = std::move(handler);
    own->thread = std::jthread{[at = own.get()](const std::stop_token& requested) { at->thread_main(requested); }};
}

void* async_deliver_queue::stop() {
    if (own.is_foreign()) return take();
    const std::lock_guard guard{own->outer};
    if (own->thread.joinable()) {
        own->thread.request_stop();
        own->thread.join();
        own->thread = {};
    }
    return own->take();
}

void* async_deliver_queue::take() {
    // In a child made by fork nobody else is there, and who held the lock in the parent never gives it back.
    if (own.is_foreign()) return std::exchange(own->slot, nullptr);
    return own->take();
}

async_deliver_queue::push_result async_deliver_queue::push_image_replace(void* frame) {
    // Whoever stops waits for the handler; the receive thread must not wait with him.
    const std::unique_lock guard{own->outer, std::try_to_lock};
    if (!guard.owns_lock() || !own->thread.joinable()) return {true, frame};
    const std::lock_guard inner_guard{own->inner};
    void* replaced = std::exchange(own->slot, frame);
    own->filled.notify_one();
    return {false, replaced};
}

} // namespace gds_producer
