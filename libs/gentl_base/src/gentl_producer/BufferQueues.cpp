#include "BufferQueues.h"

#include <gentl_producer/InfoAnswer.h>
#include <gentl_producer/Library.h>

#include <spdlog/logger.h>

#include <cstring>

namespace GenTL::Producer {

namespace {

constexpr EventFacts facts{EVENT_NEW_BUFFER, sizeof(EVENT_NEW_BUFFER_DATA), sizeof(void*)};
static_assert(sizeof(EVENT_NEW_BUFFER_DATA) == 16);

} // namespace

void OutputQueue::append(std::span<Buffer* const> added) {
    const std::lock_guard guard{mutex};
    for (Buffer* buffer : added) {
        buffer->set_status(BufferStatus::Output);
        buffers.push_back(buffer);
    }
    if (event != nullptr) event->waiters.fired(added.size());
}

void OutputQueue::reserve(size_t count) {
    const std::lock_guard guard{mutex};
    buffers.reserve(count);
}

void OutputQueue::discard() {
    const std::lock_guard guard{mutex};
    for (Buffer* buffer : buffers) buffer->set_status(BufferStatus::Announced);
    buffers.clear();
}

NewBufferEvent::NewBufferEvent(std::shared_ptr<OutputQueue> queue) : output(std::move(queue)) {
    const std::lock_guard guard{output->mutex};
    output->event = this;
}

Error NewBufferEvent::GetData(void* pBuffer, size_t* piSize, uint64_t iTimeout) {
    if (Error error = check_event_data_size(piSize, facts.size_max); error.failed()) return error;
    std::unique_lock held{output->mutex};
    const auto has_data = [&] { return !output->buffers.empty(); };
    if (Error error = waiters.wait(held, iTimeout, has_data); error.failed()) return error;
    Buffer* buffer = output->buffers.front();
    output->buffers.erase(output->buffers.begin());
    const EVENT_NEW_BUFFER_DATA data{buffer, buffer->user_ptr};
    // From here on the buffer is the consumer's, who may revoke it at once.
    buffer->set_status(BufferStatus::Announced);
    held.unlock();
    if (pBuffer != nullptr) std::memcpy(pBuffer, &data, sizeof data);
    *piSize = sizeof data;
    if (auto* logger = trace_logger(trace_buffers, spdlog::level::trace)) {
        logger->trace("OutputQueue EVENT_NEW_BUFFER_DATA: ptr={}.", fmt::ptr(data.BufferHandle));
    }
    return success();
}

Error NewBufferEvent::GetDataInfo(const void* pInBuffer, size_t iInSize, EVENT_DATA_INFO_CMD iInfoCmd,
                                  INFO_DATATYPE* piType, void* pOutBuffer, size_t* piOutSize) {
    if (Error error = check_data_info_parameters(pInBuffer, piType, piOutSize); error.failed()) return error;
    if (iInSize < facts.size_max) {
        return {GC_ERR_INVALID_PARAMETER, "iInSize too small. Expected {} bytes.", facts.size_max};
    }
    EVENT_NEW_BUFFER_DATA data;
    std::memcpy(&data, pInBuffer, sizeof data);
    switch (iInfoCmd) {
    case EVENT_DATA_ID:
        return answer_ptr(piType, pOutBuffer, piOutSize, data.BufferHandle);
    case EVENT_DATA_VALUE:
        return answer_ptr(piType, pOutBuffer, piOutSize, data.pUserPointer);
    case EVENT_DATA_NUMID:
        return answer_uint64(piType, pOutBuffer, piOutSize, reinterpret_cast<uint64_t>(data.BufferHandle));
    default:
        return Error{GC_ERR_NOT_IMPLEMENTED};
    }
}

Error NewBufferEvent::GetInfo(EVENT_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) {
    const std::lock_guard guard{output->mutex};
    return answer_event_info(facts, output->buffers.size(), waiters.fired_count(), iInfoCmd, piType, pBuffer, piSize);
}

Error NewBufferEvent::Flush() {
    output->discard();
    return success();
}

Error NewBufferEvent::Kill() {
    const std::lock_guard guard{output->mutex};
    waiters.kill();
    return success();
}

void NewBufferEvent::close() {
    const std::lock_guard guard{output->mutex};
    if (output->event == this) output->event = nullptr; // it may be the next one's already
    waiters.close();
}

} // namespace GenTL::Producer
