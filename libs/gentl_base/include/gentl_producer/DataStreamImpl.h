// The data stream module: announced buffers on their way through input, filling and output.
//
// How frames arrive is the business of a derived class, which takes free buffers and gives filled ones back.
#pragma once

#include <gentl_producer/Buffer.h>
#include <gentl_producer/Events.h>
#include <gentl_producer/ObjectTracker.h>
#include <gentl_producer/Port.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <span>
#include <string>
#include <vector>

namespace GenTL::Producer {

class InputStack;
struct OutputQueue;
class NewBufferEvent;

// Thread-safe, the filling side's part included: one thread may take buffers while another hands filled ones over. Lock
// order: queue_mutex, announced_lock, the output queue's.
class DataStreamImpl : public virtual IDataStream,
                       public VirtualPortImpl,
                       public EventSourceImpl,
                       private Util::TrackedObject {
public:
    ~DataStreamImpl() override;

    Error AnnounceBuffer(void* pBuffer, size_t iSize, void* pPrivate, BUFFER_HANDLE* phBuffer) override;
    Error AllocAndAnnounceBuffer(size_t iSize, void* pPrivate, BUFFER_HANDLE* phBuffer) override;
    Error FlushQueue(ACQ_QUEUE_TYPE iOperation) override;
    Error StartAcquisition(ACQ_START_FLAGS iStartFlags, uint64_t iNumToAcquire) override;
    Error StopAcquisition(ACQ_STOP_FLAGS iStopFlags) override;
    Error GetInfo(STREAM_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) override;
    Error GetBufferID(uint32_t iIndex, BUFFER_HANDLE* phBuffer) override;
    Error RevokeBuffer(BUFFER_HANDLE hBuffer, void** ppBuffer, void** ppPrivate) override;
    Error QueueBuffer(BUFFER_HANDLE hBuffer) override;
    Error GetBufferInfo(BUFFER_HANDLE hBuffer, BUFFER_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                        size_t* piSize) override;
    Error GetBufferChunkData(BUFFER_HANDLE hBuffer, SINGLE_CHUNK_DATA* pChunkData, size_t* piNumChunks) override;
    Error GetParentDev(DEV_HANDLE* phDevice) override;
    Error GetBufferInfoStacked(BUFFER_HANDLE hBuffer, DS_BUFFER_INFO_STACKED* pInfoStacked, size_t iNumInfos) override;
    [[nodiscard]] std::string id() const override { return stream_id; }
    void Close() override;
    [[nodiscard]] IDevice& parent_device() override { return device; }
    Error FindBuffer(BUFFER_HANDLE hBuffer) override;
    [[nodiscard]] const std::weak_ptr<IHandleTarget>* parent_target() const noexcept override { return &above; }

    // For the filling side. A null result means that no buffer is free, or that the acquisition is being stopped: the
    // call gives up rather than wait for a consumer who waits for the filling side.
    [[nodiscard]] Buffer* take_input_buffer(bool count_underrun);
    // With queue_mutex held.
    [[nodiscard]] Buffer* take_input_buffer_unlocked(bool count_underrun);
    void queue_buffer_from_filling_to_output(Buffer* buffer);
    void queue_buffers_from_filling_to_output(std::span<Buffer* const> buffers);
    void queue_buffer_from_filling_to_input(Buffer* buffer);

protected:
    DataStreamImpl(IDevice& parent, std::string id);

    virtual size_t payload_size() = 0;
    virtual uint64_t num_transmission_drop() { return 0; }
    // Called with queue_mutex held. A start that fails or throws leaves nothing running.
    virtual Error start_acquisition_() = 0;
    // Called with queue_mutex held; no thread that is joined here may be waiting for that mutex. Throws nothing, also
    // without memory: the consumer frees the buffers next.
    virtual void stop_acquisition_(bool kill) = 0;
    // Hands back every buffer in Filling. Called with queue_mutex held.
    virtual void flush_filling_buffers_() = 0;
    // Called with announced_lock held.
    virtual std::expected<std::shared_ptr<Buffer>, Error> create_buffer_(void* base, size_t size, void* user_ptr);
    virtual void input_queue_changed_() {} // called with queue_mutex held

    Util::DocumentIdentity document_identity() override;
    void build_register_map(Util::GenApiInterfaceBuilder& builder) override;

    // Makes take_input_buffer give up until the start is over; before a thread of a failing start is joined.
    void give_up_filling() noexcept { is_stopping = true; }
    [[nodiscard]] bool grabbing() const noexcept { return is_grabbing; }
    [[nodiscard]] uint64_t underrun_count() const noexcept { return num_underrun; }

private:
    std::string tl_type();
    std::shared_ptr<Buffer> find_announced(BUFFER_HANDLE hBuffer) const;
    [[nodiscard]] size_t announced_count() const;
    template <class Condition>
    [[nodiscard]] std::unique_lock<std::mutex> lock_unless(Condition give_up);
    Error announce(std::string_view function, std::shared_ptr<Buffer> buffer, BUFFER_HANDLE* phBuffer);
    void queue_buffer_to_input(Buffer* buffer);
    void drain_input_to_announced();
    void flush_filling();
    void stop_grabbing(bool kill);
    void dump_announced_buffer_status(std::string_view label);

    // Constant after construction.
    IDevice& device;
    const std::weak_ptr<IHandleTarget> above; // the device
    const std::string stream_id;
    size_t min_announced_buffers_required = 5;

    // Orders state changes of the queues against each other and against start and stop. Pops of `input` happen under
    // it; pushes need no lock.
    std::mutex queue_mutex;
    mutable std::shared_mutex announced_lock;       // guards announced
    std::vector<std::shared_ptr<Buffer>> announced; // owning, in announcement order
    const std::unique_ptr<InputStack> input;
    const std::shared_ptr<OutputQueue> output; // has its own mutex, which nests inside both locks above

    bool is_closed = false; // for good; written with both locks held, read with either
    std::atomic<bool> is_grabbing{false};
    std::atomic<bool> is_starting{false}; // set while a start holds queue_mutex and waits for the camera
    std::atomic<bool> is_stopping{false}; // set while a stop or flush holds queue_mutex and waits for the filling side
    std::atomic<uint64_t> num_delivered{0};
    std::atomic<uint64_t> num_underrun{0};
    std::atomic<uint64_t> num_to_acquire{0};
    std::atomic<uint64_t> num_filling{0};
    std::atomic<uint64_t> num_started{0};
    event_ptr<NewBufferEvent> new_buffer_event;
};

} // namespace GenTL::Producer
