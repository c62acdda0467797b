// The interface module when the device list comes from the service.
#pragma once

#include <gds_gentl_producer/producer_system_base.h>
#include <gentl_producer/InterfaceImpl.h>

#include <atomic>
#include <mutex>
#include <string>

namespace gds_producer {

// Thread-safe.
class producer_interface_base : public GenTL::Producer::InterfaceImpl {
public:
    ~producer_interface_base() override;

    // Once, after construction.
    [[nodiscard]] GenTL::Error init();

    GenTL::Error Read(uint64_t address, void* buffer, size_t* size) override;
    GenTL::Error Write(uint64_t address, const void* buffer, size_t* size) override;

    [[nodiscard]] producer_system_base& system_base() noexcept { return system; }

protected:
    producer_interface_base(producer_system_base& parent, const GenTL::Producer::InterfaceInfo& info,
                            ipc_rpc::client_object_handle interface_handle);

    // Makes the device module for an open device of the service.
    virtual std::expected<std::shared_ptr<GenTL::Producer::IDevice>, GenTL::Error>
    make_device_(const GenTL::Producer::DeviceInfo& info, GenTL::DEVICE_ACCESS_FLAGS flags,
                 ipc_rpc::client_object_handle handle) = 0;

    std::expected<std::vector<GenTL::Producer::DeviceInfo>, GenTL::Error> query_devices_(uint64_t timeout) override;
    std::expected<std::shared_ptr<GenTL::Producer::IDevice>, GenTL::Error>
    create_device_(const GenTL::Producer::DeviceInfo& info, GenTL::DEVICE_ACCESS_FLAGS flags) override;
    std::string replacement_document_() override;
    void build_register_map(GenTL::Producer::Util::GenApiInterfaceBuilder& builder) override;

    [[nodiscard]] const ipc_rpc::client_object_handle& service_handle() const noexcept { return handle; }

private:
    void fetch_pending_messages();
    void build_genicam_document_firmwareupdate(GenTL::Producer::Util::GenApiInterfaceBuilder& builder);
    [[nodiscard]] GenTL::Error set_firmware_package(std::string path);
    [[nodiscard]] GenTL::Error upload_firmware();
    [[nodiscard]] std::expected<std::string, GenTL::Error> firmware_progress();

    producer_system_base& system;
    ipc_rpc::client_object_handle handle;
    ipc_rpc::notification_registry::token device_list_changed;
    ipc_rpc::notification_registry::token messages_pending;
    std::mutex firmware_mutex; // guards firmware_package_path
    std::string firmware_package_path;
    std::atomic<int> firmware_uploads{0}; // packages on their way to the service
};

} // namespace gds_producer
