#include <gds_gentl_producer/async_deliver_queue.h>
#include <gds_helper/process.h>

#include <utility>

namespace gds_producer {

void async_deliver_queue::start(std::function<void(void*)> new_handler) {
    const std::lock_guard guard{outer};
    if (thread.joinable()) return;
    handler = std::move(new_handler);
    owner_process = gds_helper::process_id();
    thread = std::jthread{[this](const std::stop_token& stop_requested) { thread_main(stop_requested); }};
}

void* async_deliver_queue::stop() {
    const std::lock_guard guard{outer};
    if (thread.joinable() && gds_helper::process_id() != owner_process) {
        thread.detach();
    } else if (thread.joinable()) {
        thread.request_stop();
        thread.join();
        thread = {};
    }
    return take();
}

void* async_deliver_queue::take() {
    const std::lock_guard guard{inner};
    return std::exchange(slot, nullptr);
}

async_deliver_queue::push_result async_deliver_queue::push_image_replace(void* frame) {
    // Whoever stops waits for the handler; the receive thread must not wait with him.
    const std::unique_lock guard{outer, std::try_to_lock};
    if (!guard.owns_lock() || !thread.joinable()) return {true, frame};
    const std::lock_guard inner_guard{inner};
    void* replaced = std::exchange(slot, frame);
    filled.notify_one();
    return {false, replaced};
}

void async_deliver_queue::thread_main(const std::stop_token& stop_requested) {
    gds_helper::set_thread_name("gds-buf-deliver");
    std::unique_lock held{inner};
    while (filled.wait(held, stop_requested, [this] { return slot != nullptr; }) && !stop_requested.stop_requested()) {
        void* frame = std::exchange(slot, nullptr);
        held.unlock();
        handler(frame);
        held.lock();
    }
}

} // namespace gds_producer
