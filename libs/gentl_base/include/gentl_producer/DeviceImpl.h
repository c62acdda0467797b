// The device module: the local proxy of a camera, its streams and its remote port.
#pragma once

#include <gentl_producer/Events.h>
#include <gentl_producer/ObjectTracker.h>
#include <gentl_producer/Port.h>

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace GenTL::Producer {

// Thread-safe, but for load_data_stream_ids and the selector of its document. open_mutex is held while a stream or the
// remote port is made, not while one is closed.
class DeviceImpl : public virtual IDevice, public VirtualPortImpl, public EventSourceImpl, private Util::TrackedObject {
public:
    ~DeviceImpl() override;

    Error GetPort(PORT_HANDLE* phRemoteDevice) override;
    Error GetNumDataStreams(uint32_t* piNumDataStreams) override;
    Error GetDataStreamID(uint32_t iIndex, char* sDataStreamID, size_t* piSize) override;
    Error OpenDataStream(const char* sDataStreamID, DS_HANDLE* phDataStream) override;
    Error GetInfo(DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) override;
    Error GetParentIF(IF_HANDLE* phIface) override;
    [[nodiscard]] std::string id() const override { return device_data.id; }
    [[nodiscard]] IInterface& parent_interface() override { return interface; }
    void close_children() override;
    Error OnDataStreamClosed(IDataStream* closed) override;
    [[nodiscard]] const std::weak_ptr<IHandleTarget>* parent_target() const noexcept override { return &above; }
    // Tells it to the waiters of the error event. Any thread.
    void fire_error(const Error& error);

protected:
    DeviceImpl(IInterface& parent, DeviceInfo device_info, DEVICE_ACCESS_FLAGS flags);

    virtual std::shared_ptr<IPort> create_remote_port_() = 0;
    virtual std::vector<std::string> data_stream_ids_() = 0;
    virtual std::expected<std::shared_ptr<IDataStream>, Error> create_data_stream_(const std::string& stream_id) = 0;
    // The base answers from the record.
    virtual std::expected<std::string, Error> query_user_defined_name_();

    Util::DocumentIdentity document_identity() override;
    void build_register_map(Util::GenApiInterfaceBuilder& builder) override;

    // Fills the list of stream ids; called once by the derived class when it can answer.
    void load_data_stream_ids();
    // From now on every GetInfo fails with "Device lost", and the error event says so, once. Any thread.
    void mark_lost();

    [[nodiscard]] const DeviceInfo& device_info() const noexcept { return device_data; }
    [[nodiscard]] DEVICE_ACCESS_FLAGS access() const noexcept { return access_flags; }
    void fire_module_event(uint64_t event_id, std::span<const std::byte> data);

private:
    IInterface& interface;
    const std::weak_ptr<IHandleTarget> above; // the interface
    const DeviceInfo device_data;
    std::vector<std::string> data_stream_ids;
    std::recursive_mutex closing_turn; // as OpenChildren's
    std::mutex open_mutex;             // guards is_closed, open_streams and remote_port
    bool is_closed = false;            // for good
    std::map<std::string, std::shared_ptr<IDataStream>> open_streams;
    std::weak_ptr<IPort> remote_port;
    event_ptr<ErrorEvent> error_event;
    event_ptr<GenApiEvent> genapi_event;
    uint32_t stream_selector = 0;
    std::atomic<bool> device_lost{false}; // never cleared
    const DEVICE_ACCESS_FLAGS access_flags;
};

} // namespace GenTL::Producer
