#include <gentl_producer/Events.h>
#include <gentl_producer/InfoAnswer.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <new>

namespace GenTL::Producer {

namespace {

Error missing(const char* parameter) { return {GC_ERR_INVALID_PARAMETER, "{} == nullptr", parameter}; }

template <class Record>
Record read_record(const void* data) {
    Record record;
    std::memcpy(&record, data, sizeof record);
    return record;
}

template <class Record>
void pop_front(std::list<Record>& queue, void* pBuffer, size_t* piSize) {
    if (pBuffer != nullptr) std::memcpy(pBuffer, &queue.front(), sizeof(Record));
    *piSize = sizeof(Record);
    queue.pop_front();
}

} // namespace

event_ptr_base::event_ptr_base(EventSourceImpl& source, EVENT_TYPE type) : module(source), event_type(type) {
    source.supported.push_back(this);
}

event_ptr_base::~event_ptr_base() { std::erase(module.supported, this); }

EVENT_HANDLE event_ptr_base::register_event() {
    const std::unique_lock guard{lock};
    if (!is_unregistered()) return nullptr;
    try {
        return add_handle("Event", make_event(), HandleKind::Event);
    } catch (...) {
        static_cast<void>(release());
        throw;
    }
}

bool event_ptr_base::reset() {
    std::shared_ptr<IEvent> event;
    {
        const std::unique_lock guard{lock};
        event = release();
    }
    if (!event) return false;
    remove_handle(event.get());
    event->close();
    return true;
}

event_ptr_base* EventSourceImpl::find(EVENT_TYPE type) const {
    const auto found = std::ranges::find(supported, type, &event_ptr_base::type);
    return found == supported.end() ? nullptr : *found;
}

Error EventSourceImpl::RegisterEvent(EVENT_TYPE type, EVENT_HANDLE* phEvent) {
    if (phEvent == nullptr) return missing("phEvent");
    event_ptr_base* slot = find(type);
    if (slot == nullptr) return Error{GC_ERR_NOT_IMPLEMENTED};
    const EVENT_HANDLE handle = slot->register_event();
    if (events_closed) { // before or after the registration, of which close_events may have seen nothing
        slot->reset();
        return {GC_ERR_INVALID_HANDLE, "Unknown hEventSrc"};
    }
    if (handle == nullptr) return Error{GC_ERR_RESOURCE_IN_USE};
    *phEvent = handle;
    return success();
}

Error EventSourceImpl::UnregisterEvent(EVENT_TYPE type) {
    event_ptr_base* slot = find(type);
    if (slot == nullptr) return Error{GC_ERR_NOT_IMPLEMENTED};
    if (!slot->reset()) return {GC_ERR_NOT_INITIALIZED, "Event was not registered previously"};
    return success();
}

void EventSourceImpl::close_events() {
    events_closed = true;
    for (event_ptr_base* slot : supported) slot->reset();
}

Error EventWait::wait(std::unique_lock<std::mutex>& held, uint64_t iTimeout, const std::function<bool()>& has_data) {
    using clock = std::chrono::steady_clock;
    const auto start = clock::now();
    const auto room = std::chrono::duration_cast<std::chrono::milliseconds>(clock::time_point::max() - start);
    const bool endless = iTimeout == GENTL_INFINITE || iTimeout >= static_cast<uint64_t>(room.count());
    const auto deadline =
        endless ? clock::time_point::max() : start + std::chrono::milliseconds{static_cast<int64_t>(iTimeout)};

    const auto closed_by_parent = [] { return Error{GC_ERR_ABORT, "Event closed by parent."}; };
    if (closed) return closed_by_parent();
    while (!has_data() && kill_count == 0) {
        if (endless) {
            condition.wait(held);
        } else if (clock::now() >= deadline) {
            return {GC_ERR_TIMEOUT, "Timeout elapsed while waiting for event"};
        } else {
            condition.wait_until(held, deadline);
        }
        if (closed) return closed_by_parent();
    }
    if (kill_count > 0) { // a kill outranks waiting data
        --kill_count;
        return Error{GC_ERR_ABORT};
    }
    return success();
}

Error answer_event_info(const EventFacts& facts, size_t queue_size, uint64_t num_fired, EVENT_INFO_CMD iInfoCmd,
                        INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) {
    if (piType == nullptr) return missing("piType");
    if (piSize == nullptr) return missing("piSize");
    switch (iInfoCmd) {
    case EVENT_EVENT_TYPE:
        return answer_int32(piType, pBuffer, piSize, facts.type);
    case EVENT_NUM_IN_QUEUE:
        return answer_sizet(piType, pBuffer, piSize, queue_size);
    case EVENT_NUM_FIRED:
        return answer_uint64(piType, pBuffer, piSize, num_fired);
    case EVENT_SIZE_MAX:
        return answer_sizet(piType, pBuffer, piSize, facts.size_max);
    case EVENT_INFO_DATA_SIZE_MAX:
        return answer_sizet(piType, pBuffer, piSize, facts.data_size_max);
    default:
        return Error{GC_ERR_NOT_IMPLEMENTED};
    }
}

Error check_event_data_size(const size_t* piSize, size_t size_max) {
    if (piSize == nullptr) return missing("piSize");
    if (*piSize < size_max) {
        return {GC_ERR_BUFFER_TOO_SMALL, "Buffer too small, expected {} bytes ({} provided)", size_max, *piSize};
    }
    return success();
}

Error check_data_info_parameters(const void* pInBuffer, const INFO_DATATYPE* piType, const size_t* piOutSize) {
    if (pInBuffer == nullptr) return missing("pInBuffer");
    if (piType == nullptr) return missing("piType");
    if (piOutSize == nullptr) return missing("piOutSize");
    return success();
}

Error EventImplBase2::GetData(void* pBuffer, size_t* piSize, uint64_t iTimeout) {
    if (Error error = check_event_data_size(piSize, facts.size_max); error.failed()) return error;
    std::unique_lock held{mutex};
    if (Error error = waiters.wait(held, iTimeout, [&] { return queue_size() != 0; }); error.failed()) return error;
    pop(pBuffer, piSize);
    return success();
}

Error EventImplBase2::GetDataInfo(const void* pInBuffer, size_t iInSize, EVENT_DATA_INFO_CMD iInfoCmd,
                                  INFO_DATATYPE* piType, void* pOutBuffer, size_t* piOutSize) {
    if (Error error = check_data_info_parameters(pInBuffer, piType, piOutSize); error.failed()) return error;
    return get_data_info(pInBuffer, iInSize, iInfoCmd, piType, pOutBuffer, piOutSize);
}

Error EventImplBase2::GetInfo(EVENT_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) {
    const std::lock_guard guard{mutex};
    return answer_event_info(facts, queue_size(), waiters.fired_count(), iInfoCmd, piType, pBuffer, piSize);
}

Error EventImplBase2::Flush() {
    const std::lock_guard guard{mutex};
    clear_queue();
    return success();
}

Error EventImplBase2::Kill() {
    const std::lock_guard guard{mutex};
    waiters.kill();
    return success();
}

void EventImplBase2::close() {
    const std::lock_guard guard{mutex};
    waiters.close();
}

void ErrorEvent::fire(const Error& error) {
    ErrorEventRecord record{};
    record.error_id = error.code;
    const std::string text = error.text();
    std::memcpy(record.text, text.data(), std::min(text.size(), sizeof record.text - 1));
    const std::lock_guard guard{mutex};
    try {
        queue.push_back(record);
    } catch (const std::bad_alloc&) {
        if (spare.empty()) throw;
        spare.front() = record;
        queue.splice(queue.end(), spare);
    }
    waiters.fired();
}

void ErrorEvent::pop(void* pBuffer, size_t* piSize) { pop_front(queue, pBuffer, piSize); }

Error ErrorEvent::get_data_info(const void* pInBuffer, size_t iInSize, EVENT_DATA_INFO_CMD iInfoCmd,
                                INFO_DATATYPE* piType, void* pOutBuffer, size_t* piOutSize) {
    if (Error error = check_event_data_size(&iInSize, facts.size_max); error.failed()) return error;
    const auto record = read_record<ErrorEventRecord>(pInBuffer);
    switch (iInfoCmd) {
    case EVENT_DATA_ID:
        return answer_int32(piType, pOutBuffer, piOutSize, record.error_id);
    case EVENT_DATA_VALUE:
        return answer_string(piType, pOutBuffer, piOutSize, {record.text, strnlen(record.text, sizeof record.text)});
    case EVENT_DATA_NUMID:
        return answer_uint64(piType, pOutBuffer, piOutSize, static_cast<uint64_t>(int64_t{record.error_id}));
    default:
        return Error{GC_ERR_NOT_IMPLEMENTED};
    }
}

void GenApiEvent::fire(uint64_t event_id, std::span<const std::byte> data) {
    GenApiEventRecord record{};
    record.event_id = event_id;
    record.data_size = std::min(data.size(), record.data.size());
    std::copy_n(data.begin(), record.data_size, record.data.begin());
    const std::lock_guard guard{mutex};
    queue.push_back(record);
    waiters.fired();
}

void GenApiEvent::pop(void* pBuffer, size_t* piSize) { pop_front(queue, pBuffer, piSize); }

Error GenApiEvent::get_data_info(const void* pInBuffer, size_t iInSize, EVENT_DATA_INFO_CMD iInfoCmd,
                                 INFO_DATATYPE* piType, void* pOutBuffer, size_t* piOutSize) {
    if (iInSize < facts.size_max) return {GC_ERR_INVALID_PARAMETER, "iInSize too small"};
    const auto record = read_record<GenApiEventRecord>(pInBuffer);
    switch (iInfoCmd) {
    case EVENT_DATA_ID:
        return answer_string(piType, pOutBuffer, piOutSize, fmt::format("{:X}", record.event_id));
    case EVENT_DATA_VALUE:
        // The size comes back from the consumer's memory.
        return answer_buffer(piType, pOutBuffer, piOutSize,
                             std::span{record.data}.first(std::min<size_t>(record.data_size, record.data.size())));
    case EVENT_DATA_NUMID:
        return answer_uint64(piType, pOutBuffer, piOutSize, record.event_id);
    default:
        return Error{GC_ERR_NOT_IMPLEMENTED};
    }
}

} // namespace GenTL::Producer
