// The device module when its control goes through the service.
#pragma once

#include <gds_gentl_producer/frame_processing.h>
#include <gds_gentl_producer/producer_device_remote_port_base.h>
#include <gds_gentl_producer/producer_interface_base.h>
#include <gds_gentl_producer/settings_block.h>
#include <gentl_producer/DeviceImpl.h>
#include <ipc_rpc/catalogue.h>

#include <atomic>
#include <memory>
#include <string_view>

namespace gds_producer {

enum class transform_queue_mode : uint32_t { use_direct_transform = 0, use_dedicated_thread = 1 };

class producer_device_base : public GenTL::Producer::DeviceImpl {
public:
    ~producer_device_base() override;

    // Once, after construction. A failure leaves the device unusable.
    [[nodiscard]] GenTL::Error init();

    GenTL::Error Read(uint64_t address, void* buffer, size_t* size) override;
    GenTL::Error Write(uint64_t address, const void* buffer, size_t* size) override;

    [[nodiscard]] std::expected<ipc_rpc::client_object_handle, GenTL::Error> acquire_stream_channel() const;
    // Empty when the service gave no block.
    [[nodiscard]] settings_block settings() const noexcept;
    [[nodiscard]] const std::shared_ptr<producer_device_remote_port_base>& port() const noexcept { return remote; }
    // While set, features that must not change under a running stream are locked.
    void set_streaming(bool on) noexcept { streaming = on; }
    [[nodiscard]] transform_queue_mode queue_mode() const noexcept {
        return static_cast<transform_queue_mode>(image_transform_queue_mode.load());
    }
    // What the consumer chose for the transform; it acts on the next frame. Any thread.
    [[nodiscard]] transform_options transform() const noexcept;
    [[nodiscard]] bool profiler_log() const noexcept { return transform_profiler_log; }
    [[nodiscard]] bool profiler_overlay() const noexcept { return transform_profiler_overlay; }
    [[nodiscard]] std::string_view version_text() const noexcept;

protected:
    producer_device_base(producer_interface_base& parent, const GenTL::Producer::DeviceInfo& info,
                         GenTL::DEVICE_ACCESS_FLAGS flags, ipc_rpc::client_object_handle device);

    virtual std::shared_ptr<producer_device_remote_port_base> open_remote_port(const std::string& display_name) = 0;
    [[nodiscard]] virtual GenTL::Error init_remote_port(producer_device_remote_port_base& port) = 0;
    virtual void handle_event_message(const ipc_rpc::event_message& message) = 0;

    // First in the destructor of every derived class: streams and callbacks use what is about to go.
    void shut_down();

    std::shared_ptr<GenTL::Producer::IPort> create_remote_port_() override { return remote; }
    std::expected<std::string, GenTL::Error> query_user_defined_name_() override;
    void build_register_map(GenTL::Producer::Util::GenApiInterfaceBuilder& builder) override;
    std::string replacement_document_() override;

    [[nodiscard]] const ipc_rpc::client_object_handle& service_handle() const noexcept { return handle; }

private:
    struct shared_block;

    void fetch_pending_messages();
    [[nodiscard]] GenTL::Error set_user_id(const std::string& text);
    void add_producer_device_base_GenICam_props(GenTL::Producer::Util::GenApiInterfaceBuilder& builder);
    void add_store_commands(GenTL::Producer::Util::GenApiInterfaceBuilder& builder);

    producer_interface_base& interface_base;
    ipc_rpc::client_object_handle handle;
    ipc_rpc::device_service_info service_info;
    std::unique_ptr<shared_block> shared_memory;
    std::shared_ptr<producer_device_remote_port_base> remote;
    std::atomic<bool> streaming{false};
    std::atomic<int64_t> transform_max_concurrency{0};
    std::atomic<int64_t> transform_optimization_level{0};
    std::atomic<bool> transform_profiler_log{false};
    std::atomic<bool> transform_profiler_overlay{false};
    std::atomic<uint32_t> image_transform_queue_mode{0};
    ipc_rpc::notification_registry::token connection_lost;
    ipc_rpc::notification_registry::token lost_notification;
    ipc_rpc::notification_registry::token event_notification;
};

} // namespace gds_producer
