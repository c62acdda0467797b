// A mailbox for one frame between the receive thread and a slower one: the newest frame wins.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

namespace gds_producer {

// Frames are plain pointers that the mailbox does not own. Thread-safe.
class async_deliver_queue final {
public:
    struct push_result {
        bool stopped;   // the mailbox does not run and took nothing
        void* returned; // the frame that nobody will handle, or null
    };

    // The handler runs on the thread "gds-buf-deliver".
    void start(std::function<void(void*)> handler);
    // Ends the thread and returns the frame that is left, or null. Harmless when not running.
    void* stop();
    // Takes the frame that waits, or null; the thread goes on.
    void* take();
    push_result push_image_replace(void* frame);

    ~async_deliver_queue() { stop(); }

private:
    void thread_main(const std::stop_token& stop_requested);

    std::mutex outer; // guards thread; taken before inner
    std::jthread thread;
    int64_t owner_process = 0; // the thread is this process's alone
    std::mutex inner;          // guards slot
    std::condition_variable_any filled;
    void* slot = nullptr;
    std::function<void(void*)> handler; // constant while the thread runs
};

} // namespace gds_producer
