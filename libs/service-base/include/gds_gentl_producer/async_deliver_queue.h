// A mailbox for one frame between the receive thread and a slower one: the newest frame wins.
#pragma once

#include <gds_helper/process.h>

#include <functional>

namespace gds_producer {

// Frames are plain pointers that the mailbox does not own. Thread-safe.
class async_deliver_queue final {
public:
    struct push_result {
        bool stopped;   // the mailbox does not run and took nothing
        void* returned; // the frame that nobody will handle, or null
    };

    async_deliver_queue();
    async_deliver_queue(const async_deliver_queue&) = delete;
    async_deliver_queue& operator=(const async_deliver_queue&) = delete;
    ~async_deliver_queue() { stop(); }

    // The handler runs on the thread "gds-buf-deliver".
    void start(std::function<void(void*)> handler);
    // Ends the thread and returns the frame that is left, or null. Harmless when not running.
    void* stop();
    // Takes the frame that waits, or null; the thread goes on.
    void* take();
    push_result push_image_replace(void* frame);

private:
    struct state;
    gds_helper::process_local<state> own;
};

} // namespace gds_producer
