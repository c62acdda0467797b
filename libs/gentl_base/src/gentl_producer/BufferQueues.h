// The two queues of a data stream and the event over the second one.
#pragma once

#include <gentl_producer/Buffer.h>
#include <gentl_producer/Events.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

namespace GenTL::Producer {

// Free buffers, last in, first out, threaded through Buffer::next.
//
// push may be called from any thread at any time and never waits. pop and its kin are called with the stream's
// queue_mutex held, so there is one popper at a time: a top that is still the top after `next` was read cannot have
// been taken and put back in between, which is what makes the plain compare-and-swap safe against ABA.
class InputStack {
public:
    void push(Buffer* buffer) {
        count.fetch_add(1, std::memory_order_relaxed);
        Buffer* old_top = top.load(std::memory_order_relaxed);
        do {
            buffer->next = old_top;
        } while (!top.compare_exchange_weak(old_top, buffer, std::memory_order_release, std::memory_order_relaxed));
    }
    // Null when empty.
    Buffer* pop() {
        Buffer* old_top = top.load(std::memory_order_acquire);
        while (old_top != nullptr && !top.compare_exchange_weak(old_top, old_top->next, std::memory_order_acquire,
                                                                std::memory_order_acquire)) {
        }
        if (old_top != nullptr) count.fetch_sub(1, std::memory_order_relaxed);
        return old_top;
    }
    // Counts one buffer too many or too few while it is being pushed or popped.
    [[nodiscard]] size_t size() const noexcept {
        return static_cast<size_t>(std::max<std::ptrdiff_t>(count.load(std::memory_order_relaxed), 0));
    }

private:
    std::atomic<Buffer*> top{nullptr};
    std::atomic<std::ptrdiff_t> count{0};
};

class NewBufferEvent;

// Finished buffers, oldest first. Thread-safe. Shared with the event, whose waiters may outlive the stream for a
// moment.
struct OutputQueue {
    std::mutex mutex; // guards what follows and the wait of the event of the moment
    std::vector<Buffer*> buffers;
    NewBufferEvent* event = nullptr; // the one registered last, while it is open

    // Queues and wakes under one hold of the mutex: whoever registers or waits does so before or after both.
    void append(std::span<Buffer* const> added);
    // Room for so many buffers, so that append never allocates.
    void reserve(size_t count);
    // Every buffer goes back to Announced.
    void discard();
};

// Thread-safe; its wait is guarded by the queue's mutex.
class NewBufferEvent final : public IEvent {
public:
    explicit NewBufferEvent(std::shared_ptr<OutputQueue> queue);
    ~NewBufferEvent() override { close(); }

    Error GetData(void* pBuffer, size_t* piSize, uint64_t iTimeout) override;
    Error GetDataInfo(const void* pInBuffer, size_t iInSize, EVENT_DATA_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                      void* pOutBuffer, size_t* piOutSize) override;
    Error GetInfo(EVENT_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) override;
    Error Flush() override;
    Error Kill() override;
    void close() override;

private:
    friend struct OutputQueue;
    const std::shared_ptr<OutputQueue> output;
    EventWait waiters;
};

} // namespace GenTL::Producer
