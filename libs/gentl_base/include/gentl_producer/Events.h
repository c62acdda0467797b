// The event mechanism: sources, registered events, and the two generic event kinds.
//
// Firing may come from any thread. While nobody registered an event, what is fired is dropped.
#pragma once

#include <gentl_producer/HandleMap.h>
#include <gentl_producer/Modules.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <span>
#include <string_view>
#include <vector>

namespace GenTL::Producer {

class EventSourceImpl;

// The slot of a source for one event type. Thread-safe. Lock order: this lock first, then a queue's mutex.
class event_ptr_base {
public:
    event_ptr_base(const event_ptr_base&) = delete;
    event_ptr_base& operator=(const event_ptr_base&) = delete;

    [[nodiscard]] EVENT_TYPE type() const noexcept { return event_type; }
    // Creates the event and its handle; a null handle when there is one already.
    [[nodiscard]] EVENT_HANDLE register_event();
    // Takes the event out, removes its handle and closes it. False when there was none.
    bool reset();

protected:
    event_ptr_base(EventSourceImpl& source, EVENT_TYPE type);
    virtual ~event_ptr_base();

    virtual bool is_unregistered() const = 0;
    virtual std::shared_ptr<IEvent> make_event() = 0;
    virtual std::shared_ptr<IEvent> release() = 0;

    mutable std::shared_mutex lock; // guards the event of the derived class

private:
    EventSourceImpl& module;
    EVENT_TYPE event_type;
};

template <class T>
class event_ptr final : public event_ptr_base {
public:
    event_ptr(EventSourceImpl& source, EVENT_TYPE type, std::function<std::shared_ptr<T>()> creator)
        : event_ptr_base(source, type), create(std::move(creator)) {}
    ~event_ptr() override { reset(); }

    // The event of the moment, or empty.
    [[nodiscard]] std::shared_ptr<T> get() const {
        const std::shared_lock guard{lock};
        return event;
    }

private:
    bool is_unregistered() const override { return !event; }
    std::shared_ptr<IEvent> make_event() override { return event = create(); }
    std::shared_ptr<IEvent> release() override { return std::exchange(event, nullptr); }

    std::function<std::shared_ptr<T>()> create;
    std::shared_ptr<T> event;
};

class EventSourceImpl : public IEventSource {
public:
    Error RegisterEvent(EVENT_TYPE type, EVENT_HANDLE* phEvent) override;
    Error UnregisterEvent(EVENT_TYPE type) override;

protected:
    // Ends all waits, for good, as the module is closed: a call under way on another thread may put off its destructor.
    void close_events();

private:
    friend class event_ptr_base;
    [[nodiscard]] event_ptr_base* find(EVENT_TYPE type) const;

    std::vector<event_ptr_base*> supported; // changed by the module's constructor and destructor only
    std::atomic<bool> events_closed{false};
};

// The wait of all events and what wakes it. Every member is guarded by the mutex of the event's queue.
class EventWait {
public:
    // Returns success when has_data() holds. `iTimeout` in milliseconds, GENTL_INFINITE waits without end.
    Error wait(std::unique_lock<std::mutex>& held, uint64_t iTimeout, const std::function<bool()>& has_data);
    void fired(uint64_t count = 1) {
        num_fired += count;
        condition.notify_all();
    }
    void kill() {
        ++kill_count;
        condition.notify_all();
    }
    void close() {
        closed = true;
        condition.notify_all();
    }
    [[nodiscard]] uint64_t fired_count() const noexcept { return num_fired; }

private:
    std::condition_variable condition;
    uint64_t num_fired = 0;
    int32_t kill_count = 0;
    bool closed = false;
};

// EVENT_INFO_CMD for all events.
struct EventFacts {
    EVENT_TYPE type;
    size_t size_max;
    size_t data_size_max;
};
Error answer_event_info(const EventFacts& facts, size_t queue_size, uint64_t num_fired, EVENT_INFO_CMD iInfoCmd,
                        INFO_DATATYPE* piType, void* pBuffer, size_t* piSize);
Error check_event_data_size(const size_t* piSize, size_t size_max);
Error check_data_info_parameters(const void* pInBuffer, const INFO_DATATYPE* piType, const size_t* piOutSize);

// An event with a queue of records of one size. Thread-safe.
class EventImplBase2 : public IEvent {
public:
    Error GetData(void* pBuffer, size_t* piSize, uint64_t iTimeout) final;
    Error GetDataInfo(const void* pInBuffer, size_t iInSize, EVENT_DATA_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                      void* pOutBuffer, size_t* piOutSize) final;
    Error GetInfo(EVENT_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) final;
    Error Flush() final;
    Error Kill() final;
    void close() final;

protected:
    explicit EventImplBase2(EventFacts event_facts) : facts(event_facts) {}

    // Under `mutex`; pop with a record in the queue and a buffer of `facts.size_max` bytes.
    virtual size_t queue_size() = 0;
    virtual void clear_queue() = 0;
    virtual void pop(void* pBuffer, size_t* piSize) = 0;
    virtual Error get_data_info(const void* pInBuffer, size_t iInSize, EVENT_DATA_INFO_CMD iInfoCmd,
                                INFO_DATATYPE* piType, void* pOutBuffer, size_t* piOutSize) = 0;

    const EventFacts facts;
    std::mutex mutex; // guards the queue of the derived class and the waiters
    EventWait waiters;
};

// Records as they travel through EventGetData; host byte order.
struct ErrorEventRecord {
    int32_t error_id;
    char text[256]; // NUL-terminated
};
static_assert(sizeof(ErrorEventRecord) == 260);

class ErrorEvent final : public EventImplBase2 {
public:
    ErrorEvent() : EventImplBase2({EVENT_ERROR, sizeof(ErrorEventRecord), sizeof ErrorEventRecord::text}) {}
    void fire(const Error& error);

private:
    size_t queue_size() override { return queue.size(); }
    void clear_queue() override { queue.clear(); }
    void pop(void* pBuffer, size_t* piSize) override;
    Error get_data_info(const void* pInBuffer, size_t iInSize, EVENT_DATA_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                        void* pOutBuffer, size_t* piOutSize) override;

    std::list<ErrorEventRecord> queue;
    std::list<ErrorEventRecord> spare{1}; // for one error without memory: a lost device is told of once
};

struct GenApiEventRecord {
    uint64_t event_id;
    std::array<uint64_t, 4> reserved;
    uint64_t data_size;
    std::array<std::byte, 600> data;
};
static_assert(sizeof(GenApiEventRecord) == 648);

class GenApiEvent final : public EventImplBase2 {
public:
    explicit GenApiEvent(EVENT_TYPE type)
        : EventImplBase2({type, sizeof(GenApiEventRecord), std::tuple_size_v<decltype(GenApiEventRecord::data)>}) {}
    // Data beyond 600 bytes is cut off.
    void fire(uint64_t event_id, std::span<const std::byte> data);

private:
    size_t queue_size() override { return queue.size(); }
    void clear_queue() override { queue.clear(); }
    void pop(void* pBuffer, size_t* piSize) override;
    Error get_data_info(const void* pInBuffer, size_t iInSize, EVENT_DATA_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                        void* pOutBuffer, size_t* piOutSize) override;

    std::list<GenApiEventRecord> queue;
};

} // namespace GenTL::Producer
