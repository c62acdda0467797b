// A buffer's way: Announced -(QueueBuffer)-> Input -(take_input_buffer)-> Filling -(delivery)-> Output
// -(EventGetData)-> Announced. Side doors: a dropped frame goes from Filling back to Input, flushes move between the
// queues, and only a buffer in Announced can be revoked. Every buffer is in exactly one of the four states, so
// announced = input + filling + output + consumer's at any time.
#include "BufferQueues.h"

#include <gentl_producer/DataStreamImpl.h>
#include <gentl_producer/InfoAnswer.h>
#include <gentl_producer/InfoTables.h>
#include <gentl_producer/Library.h>

#include <spdlog/logger.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <new>
#include <thread>
#include <utility>

namespace GenTL::Producer {

namespace {

constexpr uint64_t stream_registers = 0xE120000;

PortInfo port_info_of(IDevice& device) {
    const TransportLayerStrings tl = device.parent_interface().parent_system().transport_layer_strings();
    return {std::string{tl.vendor}, std::string{tl.model},   std::string{tl.tl_type},
            PortType::TLDataStream, std::string{tl.version}, "StreamPort"};
}

spdlog::logger* tracer(spdlog::level::level_enum level) { return trace_logger(trace_buffers, level); }

void trace_buffer(std::string_view what, const Buffer* buffer) {
    if (auto* logger = tracer(spdlog::level::trace)) logger->trace("{}: ptr={}.", what, fmt::ptr(buffer));
}

Error check_status(const Buffer& buffer) {
    switch (buffer.status.load(std::memory_order_acquire)) {
    case BufferStatus::Announced:
        return success();
    case BufferStatus::Input:
        return {GC_ERR_BUSY, "hBuffer is in input queue"};
    case BufferStatus::Filling:
        return {GC_ERR_BUSY, "hBuffer is being filled"};
    case BufferStatus::Output:
        return {GC_ERR_BUSY, "hBuffer is in output queue"};
    }
    return {GC_ERR_ERROR, "hBuffer has an invalid status"};
}

Error closed_stream() { return {GC_ERR_INVALID_HANDLE, "Unknown hDataStream"}; }
Error unknown_buffer() { return {GC_ERR_INVALID_HANDLE, "Unknown hBuffer"}; }

// Raises a flag for as long as it lives, whatever is thrown.
class raised final {
public:
    explicit raised(std::atomic<bool>& which) : flag(which) { flag = true; }
    ~raised() { flag = false; }
    raised(const raised&) = delete;
    raised& operator=(const raised&) = delete;

private:
    std::atomic<bool>& flag;
};

} // namespace

DataStreamImpl::DataStreamImpl(IDevice& parent, std::string id)
    : VirtualPortImpl("StreamPort", port_info_of(parent), stream_registers, genicam_gen::reference_id::data_stream),
      TrackedObject("DataStreamImpl"),
      device(parent),
      above(parent.weak_from_this()),
      stream_id(std::move(id)),
      input(std::make_unique<InputStack>()),
      output(std::make_shared<OutputQueue>()),
      new_buffer_event(*this, EVENT_NEW_BUFFER, [this] { return std::make_shared<NewBufferEvent>(output); }) {}

DataStreamImpl::~DataStreamImpl() = default;

std::string DataStreamImpl::tl_type() {
    return std::string{device.parent_interface().parent_system().transport_layer_strings().tl_type};
}

std::shared_ptr<Buffer> DataStreamImpl::find_announced(BUFFER_HANDLE hBuffer) const {
    const std::shared_lock guard{announced_lock};
    const auto found = std::ranges::find(announced, static_cast<Buffer*>(hBuffer), &std::shared_ptr<Buffer>::get);
    return found == announced.end() ? nullptr : *found;
}

size_t DataStreamImpl::announced_count() const {
    const std::shared_lock guard{announced_lock};
    return announced.size();
}

Error DataStreamImpl::FindBuffer(BUFFER_HANDLE hBuffer) {
    return find_announced(hBuffer) ? success() : unknown_buffer();
}

std::expected<std::shared_ptr<Buffer>, Error> DataStreamImpl::create_buffer_(void* base, size_t size, void* user_ptr) {
    return make_buffer(base, size, user_ptr);
}

// With announced_lock held exclusively.
Error DataStreamImpl::announce(std::string_view function, std::shared_ptr<Buffer> buffer, BUFFER_HANDLE* phBuffer) {
    try { // room first: the consumer frees what an announcement that failed was to announce
        if (announced.size() == announced.capacity()) announced.reserve(std::max<size_t>(2 * announced.size(), 8));
        output->reserve(announced.capacity());
    } catch (const std::bad_alloc&) {
        return Error{GC_ERR_OUT_OF_MEMORY};
    }
    announced.push_back(std::move(buffer));
    *phBuffer = announced.back().get();
    trace_buffer(function, announced.back().get());
    return success();
}

Error DataStreamImpl::AnnounceBuffer(void* pBuffer, size_t iSize, void* pPrivate, BUFFER_HANDLE* phBuffer) {
    if (pBuffer == nullptr) return {GC_ERR_INVALID_PARAMETER, "pBuffer == nullptr"};
    if (phBuffer == nullptr) return {GC_ERR_INVALID_PARAMETER, "phBuffer == nullptr"};
    const std::unique_lock guard{announced_lock};
    if (is_closed) return closed_stream();
    const bool known = std::ranges::any_of(announced, [&](const auto& buffer) { return buffer->base == pBuffer; });
    if (known) return {GC_ERR_RESOURCE_IN_USE, "pBuffer already announced"};
    auto created = create_buffer_(pBuffer, iSize, pPrivate);
    if (!created) return std::move(created.error());
    return announce("AnnounceBuffer", std::move(*created), phBuffer);
}

Error DataStreamImpl::AllocAndAnnounceBuffer(size_t iSize, void* pPrivate, BUFFER_HANDLE* phBuffer) {
    if (phBuffer == nullptr) return {GC_ERR_INVALID_PARAMETER, "phBuffer == nullptr"};
    const std::unique_lock guard{announced_lock};
    if (is_closed) return closed_stream();
    auto created = create_buffer_(nullptr, iSize, pPrivate);
    if (!created) return std::move(created.error());
    return announce("AllocAndAnnouceBuffer" /* spelled so on purpose */, std::move(*created), phBuffer);
}

Error DataStreamImpl::QueueBuffer(BUFFER_HANDLE hBuffer) {
    const std::lock_guard guard{queue_mutex};
    // Looked up and checked under the lock: a buffer may be revoked, or queued by a second thread, until we hold it.
    const std::shared_ptr<Buffer> buffer = find_announced(hBuffer);
    if (!buffer) return unknown_buffer();
    if (Error error = check_status(*buffer); error.failed()) {
        return {GC_ERR_RESOURCE_IN_USE, std::move(error.message)};
    }
    trace_buffer("QueueBuffer", buffer.get());
    queue_buffer_to_input(buffer.get());
    input_queue_changed_();
    return success();
}

Error DataStreamImpl::RevokeBuffer(BUFFER_HANDLE hBuffer, void** ppBuffer, void** ppPrivate) {
    std::shared_ptr<Buffer> buffer;
    {
        const std::scoped_lock guard{queue_mutex, announced_lock};
        const auto found = std::ranges::find(announced, static_cast<Buffer*>(hBuffer), &std::shared_ptr<Buffer>::get);
        if (found == announced.end()) return {GC_ERR_INVALID_HANDLE, "hBuffer was not announced"};
        if (Error error = check_status(**found); error.failed()) return error;
        trace_buffer("RevokeBuffer", found->get());
        buffer = std::move(*found);
        announced.erase(found);
    }
    buffer->retire();
    if (ppBuffer != nullptr) *ppBuffer = buffer->user_memory ? buffer->base : nullptr;
    if (ppPrivate != nullptr) *ppPrivate = buffer->user_ptr;
    return success();
}

void DataStreamImpl::queue_buffer_to_input(Buffer* buffer) {
    // Reset first: as soon as the state says Input, the frame's fields belong to the filling side.
    buffer->reset();
    buffer->set_status(BufferStatus::Input);
    input->push(buffer);
}

void DataStreamImpl::drain_input_to_announced() {
    while (Buffer* buffer = input->pop()) buffer->set_status(BufferStatus::Announced);
}

// With queue_mutex held, for which the filling side may be waiting while this waits for the filling side.
void DataStreamImpl::flush_filling() {
    const raised stopping{is_stopping};
    flush_filling_buffers_();
}

Error DataStreamImpl::FlushQueue(ACQ_QUEUE_TYPE iOperation) {
    if (auto* logger = tracer(spdlog::level::info)) logger->info("FlushQueue: {}", iOperation);
    switch (iOperation) {
    case ACQ_QUEUE_INPUT_TO_OUTPUT: {
        const std::lock_guard guard{queue_mutex};
        while (Buffer* buffer = input->pop()) output->append(std::span{&buffer, 1});
        return success();
    }
    case ACQ_QUEUE_OUTPUT_DISCARD:
        output->discard();
        return success();
    case ACQ_QUEUE_ALL_TO_INPUT: {
        const std::lock_guard guard{queue_mutex};
        flush_filling();
        drain_input_to_announced();
        output->discard();
        const std::shared_lock announced_guard{announced_lock};
        for (const auto& buffer : announced) {
            // One that the filling side still holds would be in two hands.
            if (buffer->status == BufferStatus::Announced) queue_buffer_to_input(buffer.get());
        }
        input_queue_changed_();
        return success();
    }
    case ACQ_QUEUE_UNQUEUED_TO_INPUT: {
        const std::scoped_lock guard{queue_mutex, announced_lock};
        for (const auto& buffer : announced) {
            if (buffer->status == BufferStatus::Announced) queue_buffer_to_input(buffer.get());
        }
        input_queue_changed_();
        return success();
    }
    case ACQ_QUEUE_ALL_DISCARD: {
        const std::lock_guard guard{queue_mutex};
        flush_filling(); // first: it returns buffers to the input, and changes nothing where it lacks memory
        drain_input_to_announced();
        output->discard();
        return success();
    }
    default:
        return Error{GC_ERR_NOT_IMPLEMENTED};
    }
}

Error DataStreamImpl::StartAcquisition(ACQ_START_FLAGS iStartFlags, uint64_t iNumToAcquire) {
    if (iStartFlags != ACQ_START_FLAGS_DEFAULT) {
        return {GC_ERR_NOT_IMPLEMENTED, "Unexpected iStartFlags ({})", iStartFlags};
    }
    if (iNumToAcquire == 0) return {GC_ERR_INVALID_PARAMETER, "iNumToAcquire == 0"};
    if (is_grabbing) return {GC_ERR_RESOURCE_IN_USE, "Acquisition already started"};
    // Not the announced buffers' lock: a slow camera takes seconds to start, and the consumer asks for his buffers.
    const std::lock_guard guard{queue_mutex};
    if (is_closed) return closed_stream();
    if (is_grabbing) return {GC_ERR_RESOURCE_IN_USE, "Acquisition already started"}; // by another thread meanwhile
    if (auto* logger = tracer(spdlog::level::trace)) logger->trace("StartAcquisition");
    if (const size_t count = announced_count(); count < min_announced_buffers_required) {
        if (!tolerate_few_buffers() || count < 2) {
            return {GC_ERR_INVALID_BUFFER, "Number of announced buffers < BUF_ANNOUNCE_MIN ({})",
                    min_announced_buffers_required};
        }
        if (auto* logger = default_logger()) {
            logger->warn("Number of announced buffers ({}) < min_announced_buffers_required ({}). This would be an "
                         "error, but we skip this to workaround bad consumers.",
                         count, min_announced_buffers_required);
        }
    }
    num_underrun = 0;
    num_delivered = 0;
    num_to_acquire = iNumToAcquire;
    is_stopping = false;
    {
        const raised starting{is_starting};
        // num_to_acquire stays, as consumers expect.
        if (Error error = start_acquisition_(); error.failed()) {
            is_stopping = false; // the filling side was told to give up, and is gone
            return error;
        }
    }
    is_grabbing = true;
    return success();
}

Error DataStreamImpl::StopAcquisition(ACQ_STOP_FLAGS iStopFlags) {
    if (iStopFlags < ACQ_STOP_FLAGS_DEFAULT || iStopFlags > ACQ_STOP_FLAGS_KILL) {
        return {GC_ERR_NOT_IMPLEMENTED, "Unexpected iStopFlags ({})", iStopFlags};
    }
    const auto not_running = [] { return Error{GC_ERR_RESOURCE_IN_USE, "Acquisition not running"}; };
    if (!is_grabbing) return not_running();
    const std::lock_guard guard{queue_mutex};
    if (!is_grabbing) return not_running(); // stopped by another thread meanwhile
    stop_grabbing(iStopFlags == ACQ_STOP_FLAGS_KILL);
    return success();
}

// With queue_mutex held.
void DataStreamImpl::stop_grabbing(bool kill) {
    if (auto* logger = tracer(spdlog::level::info)) logger->info("> StopAcquisition");
    num_to_acquire = 0;
    is_grabbing = false;
    {
        const raised stopping{is_stopping};
        stop_acquisition_(kill);
    }
    if (auto* logger = tracer(spdlog::level::info)) logger->info("< StopAcquisition");
    dump_announced_buffer_status("After StopAcquisition");
}

void DataStreamImpl::Close() {
    {
        // A start under way holds the lock: what it achieves is stopped here, and none begins after this.
        const std::lock_guard guard{queue_mutex};
        if (is_grabbing) stop_grabbing(true);
        const std::unique_lock announced_guard{announced_lock};
        is_closed = true;
        drain_input_to_announced();
        output->discard();
        for (const auto& buffer : announced) buffer->retire();
        announced.clear();
    }
    close_events();
}

// queue_mutex, held for a moment by a consumer who queues or flushes. Not owned when `give_up` says that it is held for
// long.
template <class Condition>
std::unique_lock<std::mutex> DataStreamImpl::lock_unless(Condition give_up) {
    std::unique_lock guard{queue_mutex, std::try_to_lock};
    while (!guard.owns_lock() && !give_up()) {
        std::this_thread::sleep_for(std::chrono::microseconds{10});
        static_cast<void>(guard.try_lock());
    }
    return guard;
}

Buffer* DataStreamImpl::take_input_buffer(bool count_underrun) {
    // A consumer who stops holds the lock and waits for our thread.
    const auto guard = lock_unless([&] { return is_stopping.load(); });
    if (guard.owns_lock()) return take_input_buffer_unlocked(count_underrun);
    // A flush, unlike a stop, leaves the consumer waiting for frames.
    if (count_underrun && is_grabbing) ++num_underrun;
    return nullptr;
}

Buffer* DataStreamImpl::take_input_buffer_unlocked(bool count_underrun) {
    Buffer* buffer = input->pop();
    if (buffer == nullptr) {
        if (count_underrun) ++num_underrun;
        return nullptr;
    }
    ++num_started;
    ++num_filling;
    buffer->reset();
    buffer->set_status(BufferStatus::Filling);
    return buffer;
}

void DataStreamImpl::queue_buffer_from_filling_to_output(Buffer* buffer) {
    queue_buffers_from_filling_to_output(std::span{&buffer, 1});
}

void DataStreamImpl::queue_buffers_from_filling_to_output(std::span<Buffer* const> buffers) {
    const uint64_t before = num_delivered.fetch_add(buffers.size());
    const uint64_t delivered = before + buffers.size();
    num_filling -= buffers.size();
    output->append(buffers);
    if (const uint64_t wanted = num_to_acquire; wanted > before && wanted <= delivered) {
        // Intended: the acquisition goes on, as it always has; the consumer stops it.
        if (auto* logger = default_logger()) {
            logger->warn("TODO, implement stop-acquisition on num_to_acquire reached.");
        }
    }
}

void DataStreamImpl::queue_buffer_from_filling_to_input(Buffer* buffer) {
    --num_filling;
    queue_buffer_to_input(buffer);
}

void DataStreamImpl::dump_announced_buffer_status(std::string_view label) {
    auto* logger = tracer(spdlog::level::trace);
    if (logger == nullptr) return;
    const std::shared_lock guard{announced_lock};
    size_t output_size = 0;
    {
        const std::lock_guard output_guard{output->mutex};
        output_size = output->buffers.size();
    }
    logger->trace("{}: Dump announced={} of these input={} pending={} output={}", label, announced.size(),
                  input->size(), num_filling.load(), output_size);
    for (size_t i = 0; i < announced.size(); ++i) {
        logger->trace("  [{:3}] ptr={} status={}", i, fmt::ptr(announced[i].get()),
                      static_cast<int32_t>(announced[i]->status.load()));
    }
    logger->trace("{}: Dump announced done.", label);
}

Error DataStreamImpl::GetInfo(STREAM_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) {
    const auto size_answer = [&](size_t value) { return answer_sizet(piType, pBuffer, piSize, value); };
    const auto number = [&](uint64_t value) { return answer_uint64(piType, pBuffer, piSize, value); };
    const auto output_count = [&] {
        const std::lock_guard guard{output->mutex};
        return output->buffers.size();
    };
    switch (iInfoCmd) {
    case STREAM_INFO_ID:
        return answer_string(piType, pBuffer, piSize, stream_id);
    case STREAM_INFO_NUM_DELIVERED:
        return number(num_delivered);
    case STREAM_INFO_NUM_UNDERRUN:
        return number(num_underrun);
    case STREAM_INFO_NUM_ANNOUNCED:
        return size_answer(announced_count());
    case STREAM_INFO_NUM_QUEUED:
        return size_answer(input->size());
    case STREAM_INFO_NUM_AWAIT_DELIVERY:
        return size_answer(output_count());
    case STREAM_INFO_NUM_STARTED:
        return size_answer(num_started);
    case STREAM_INFO_PAYLOAD_SIZE:
        return size_answer(payload_size());
    case STREAM_INFO_IS_GRABBING:
        return answer_bool8(piType, pBuffer, piSize, num_to_acquire != 0);
    case STREAM_INFO_DEFINES_PAYLOADSIZE:
        return answer_bool8(piType, pBuffer, piSize, false);
    case STREAM_INFO_TLTYPE:
        return answer_string(piType, pBuffer, piSize, tl_type());
    case STREAM_INFO_BUF_ANNOUNCE_MIN:
        return size_answer(min_announced_buffers_required);
    case STREAM_INFO_BUF_ALIGNMENT:
        return size_answer(16);
    case STREAM_INFO_KRV_NUM_TRANSMISSION_DROP:
        return number(num_transmission_drop());
    case STREAM_INFO_KRV_NUM_ANNOUNCED_QUEUED_AWAITDELIVERY: {
        size_t counts[3];
        if (piSize == nullptr) return {GC_ERR_INVALID_PARAMETER, "piSize == nullptr"};
        if (*piSize < sizeof counts) return {GC_ERR_BUFFER_TOO_SMALL, "Buffer too small"};
        {
            // While an acquisition starts or stops, which takes seconds with a slow camera, only the receive thread
            // moves buffers; the three may then differ by the one that it moves.
            const auto guard = lock_unless([&] { return is_starting || is_stopping; });
            dump_announced_buffer_status("KRV_NUM_ANNOUNCED.. query");
            counts[0] = announced_count();
            counts[1] = num_filling + input->size();
            counts[2] = output_count();
        }
        // Beyond what the display that this serves ever passes; null pointers are forgiven.
        if (pBuffer != nullptr) std::memcpy(pBuffer, counts, sizeof counts);
        *piSize = sizeof counts;
        if (piType != nullptr) *piType = INFO_DATATYPE_KRV_SIZET3;
        return success();
    }
    default:
        return Error{GC_ERR_NOT_IMPLEMENTED};
    }
}

Error DataStreamImpl::GetBufferID(uint32_t iIndex, BUFFER_HANDLE* phBuffer) {
    if (phBuffer == nullptr) return {GC_ERR_INVALID_PARAMETER, "phBuffer == nullptr"};
    const std::shared_lock guard{announced_lock};
    if (iIndex >= announced.size()) return {GC_ERR_INVALID_INDEX, "Unexpected iIndex"};
    *phBuffer = announced[iIndex].get();
    return success();
}

Error DataStreamImpl::GetBufferInfo(BUFFER_HANDLE hBuffer, BUFFER_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                                    void* pBuffer, size_t* piSize) {
    const std::shared_ptr<Buffer> buffer = find_announced(hBuffer);
    if (!buffer) return unknown_buffer();
    if (iInfoCmd == BUFFER_INFO_TLTYPE) return answer_string(piType, pBuffer, piSize, tl_type());
    return buffer->get_info(iInfoCmd, piType, pBuffer, piSize);
}

Error DataStreamImpl::GetBufferInfoStacked(BUFFER_HANDLE hBuffer, DS_BUFFER_INFO_STACKED* pInfoStacked,
                                           size_t iNumInfos) {
    if (pInfoStacked == nullptr) return {GC_ERR_INVALID_PARAMETER, "pInfoStacked == nullptr"};
    if (iNumInfos == 0) return {GC_ERR_INVALID_PARAMETER, "iNumInfos == 0"};
    if (!find_announced(hBuffer)) return unknown_buffer();
    for (DS_BUFFER_INFO_STACKED& entry : std::span{pInfoStacked, iNumInfos}) {
        // The published record is packed, so its fields cannot be pointed to.
        INFO_DATATYPE type = entry.iType;
        size_t size = entry.iSize;
        const Error error = GetBufferInfo(hBuffer, entry.iInfoCmd, &type, entry.pBuffer, &size);
        entry.iType = type;
        entry.iSize = size;
        entry.iResult = error.code;
    }
    return success();
}

Error DataStreamImpl::GetBufferChunkData(BUFFER_HANDLE hBuffer, SINGLE_CHUNK_DATA* pChunkData, size_t* piNumChunks) {
    if (piNumChunks == nullptr) return {GC_ERR_INVALID_PARAMETER, "piNumChunks == nullptr"};
    const std::shared_ptr<Buffer> buffer = find_announced(hBuffer);
    if (!buffer) return unknown_buffer();
    return buffer->GetChunkData(pChunkData, piNumChunks);
}

Error DataStreamImpl::GetParentDev(DEV_HANDLE* phDevice) {
    if (phDevice == nullptr) return {GC_ERR_INVALID_PARAMETER, "phDevice == nullptr"};
    *phDevice = as_handle(&device);
    return success();
}

Util::DocumentIdentity DataStreamImpl::document_identity() {
    const TransportLayerStrings tl = device.parent_interface().parent_system().transport_layer_strings();
    return {std::string{tl.vendor}, std::string{tl.model}, std::string{tl.display_name}};
}

void DataStreamImpl::build_register_map(Util::GenApiInterfaceBuilder& builder) {
    builder.add_ro_string("StreamID", 256, [this](std::span<char> text) {
        INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
        size_t size = text.size();
        return GetInfo(STREAM_INFO_ID, &type, text.data(), &size);
    });
    builder.add_enum_constant("StreamType", tl_type_entry(tl_type()));

    const auto query = [this](STREAM_INFO_CMD command) {
        return [this, command]() -> std::expected<uint64_t, Error> {
            INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
            uint64_t value = 0;
            size_t size = sizeof value;
            if (Error error = GetInfo(command, &type, &value, &size); error.failed()) {
                return std::unexpected(std::move(error));
            }
            return value;
        };
    };
    builder.add_ro_integer<uint64_t>("StreamAnnouncedBufferCount", query(STREAM_INFO_NUM_ANNOUNCED));
    builder.add_enum_constant("StreamBufferHandlingMode", "OldestFirst");
    builder.add_ro_integer<uint64_t>("StreamAnnounceBufferMinimum", query(STREAM_INFO_BUF_ANNOUNCE_MIN));
    builder.add_ro_integer<uint64_t>("StreamInputBufferCount", query(STREAM_INFO_NUM_QUEUED));
    builder.add_ro_integer<uint64_t>("StreamOutputBufferCount", query(STREAM_INFO_NUM_AWAIT_DELIVERY));
    builder.add_ro_integer<uint64_t>("StreamStartedFrameCount", query(STREAM_INFO_NUM_STARTED));
    builder.add_ro_integer<uint64_t>("PayloadSize", query(STREAM_INFO_PAYLOAD_SIZE));
    builder.add_ro_boolean("StreamIsGrabbing", [this]() -> std::expected<bool, Error> { return num_to_acquire != 0; });
    builder.add_ro_integer<uint64_t>("StreamBufferAlignment", query(STREAM_INFO_BUF_ALIGNMENT));
    auto& delivered = builder.add_ro_integer<uint64_t>("StreamDeliveredFrameCount", query(STREAM_INFO_NUM_DELIVERED),
                                                       "StreamDeliveredFrameCount_Register");
    delivered.tool_tip = "Number of delivered frames since last acquisition start.";
    delivered.display_name = "Stream Delivered Frame Count";
    auto& lost = builder.add_ro_integer<uint64_t>("StreamLostFrameCount", query(STREAM_INFO_NUM_UNDERRUN),
                                                  "StreamLostFrameCount_Register");
    lost.tool_tip = "Number of lost frames due to queue underrun.";
    lost.display_name = "Stream Lost Frame Count";
    auto& packet_loss =
        builder.add_ro_integer<uint64_t>("StreamPacketLossFrameCount", query(STREAM_INFO_KRV_NUM_TRANSMISSION_DROP),
                                         "StreamPacketLossFrameCount_Register");
    packet_loss.tool_tip = "Count of frames dropped due to packet loss.";
    packet_loss.display_name = "Stream Packet Loss Frame Count";
    builder.add_category("BufferHandlingControl", {"StreamPacketLossFrameCount"});
}

} // namespace GenTL::Producer
