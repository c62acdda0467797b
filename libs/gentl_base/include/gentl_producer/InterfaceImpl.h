// The interface module: the devices that it reaches, the devices that are open.
#pragma once

#include <gentl_producer/Events.h>
#include <gentl_producer/ObjectTracker.h>
#include <gentl_producer/OpenChildren.h>
#include <gentl_producer/Port.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace GenTL::Producer {

// Thread-safe, but for the selectors of its document, which consumers write in turn anyway. The service is asked, and
// devices are opened, without a lock.
class InterfaceImpl : public virtual IInterface,
                      public VirtualPortImpl,
                      public EventSourceImpl,
                      private Util::TrackedObject {
public:
    ~InterfaceImpl() override;

    Error GetInfo(INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) override;
    Error GetNumDevices(uint32_t* piNumDevices) override;
    Error GetDeviceID(uint32_t iIndex, char* sIDeviceID, size_t* piSize) override;
    Error UpdateDeviceList(bool* pbChanged, uint64_t timeout) override;
    Error GetDeviceInfo(const char* sDeviceID, DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                        size_t* piSize) override;
    Error OpenDevice(const char* sDeviceID, DEVICE_ACCESS_FLAGS iOpenFlags, DEV_HANDLE* phDevice) override;
    Error GetParentTL(TL_HANDLE* phSystem) override;
    [[nodiscard]] std::string id() const override { return interface_data.id; }
    [[nodiscard]] ISystem& parent_system() override { return system; }
    void close_children() override;
    Error OnDeviceClosed(IDevice* closed) override;
    [[nodiscard]] const std::weak_ptr<IHandleTarget>* parent_target() const noexcept override { return &above; }

protected:
    // The module event that tells of a changed list of devices.
    static constexpr uint64_t device_list_event = 0x3001;

    InterfaceImpl(ISystem& parent, InterfaceInfo interface_info);

    virtual std::expected<std::vector<DeviceInfo>, Error> query_devices_(uint64_t timeout) = 0;
    virtual std::expected<std::shared_ptr<IDevice>, Error> create_device_(const DeviceInfo& interface_data,
                                                                          DEVICE_ACCESS_FLAGS iOpenFlags) = 0;

    Util::DocumentIdentity document_identity() override;
    void build_register_map(Util::GenApiInterfaceBuilder& builder) override;

    void fire_module_event(uint64_t event_id, std::span<const std::byte> data);
    // The device that the selector of the module's document points at; none over an empty list.
    [[nodiscard]] std::optional<DeviceInfo> selected_device_info();
    [[nodiscard]] const InterfaceInfo& interface_info() const noexcept { return interface_data; }

private:
    void add_device_enumeration(Util::GenApiInterfaceBuilder& builder);
    void add_gev_features(Util::GenApiInterfaceBuilder& builder);
    template <class T>
    auto selected_device(T (*extract)(const DeviceInfo&));

    const InterfaceInfo interface_data;
    ISystem& system;
    const std::weak_ptr<IHandleTarget> above; // the system
    // Numbers the questions for the list. Two threads may ask at once: the answer to the earlier question never
    // replaces that to the later one.
    std::atomic<uint64_t> list_questions{0};
    std::mutex device_list_mutex; // guards what follows
    uint64_t list_question = 0;   // the one that devices answers
    std::vector<DeviceInfo> devices;
    OpenChildren<IDevice> open_devices;
    event_ptr<GenApiEvent> genapi_event;
    uint32_t device_selector = 0;
    uint32_t subnet_selector = 0;
    uint32_t gateway_selector = 0;
};

} // namespace GenTL::Producer
