// The GigE Vision device module.
#pragma once

#include "device_remote_port.h"
#include "remote_device_event.h"

#include <gds_gentl_producer/producer_device_base.h>

#include <atomic>

namespace gevdrv::gentl {

// What the consumer chose for the repair of frames. It belongs to the device, so that it outlives each of its streams;
// read when a stream is opened.
struct resend_settings {
    std::atomic<bool> enable{true};
    std::atomic<bool> auto_time_per_frame{true};
    std::atomic<uint32_t> automatic_time_us{33333};
    std::atomic<uint32_t> time_per_frame_us{33333};
};

class device_instance final : public gds_producer::producer_device_base {
public:
    device_instance(gds_producer::producer_interface_base& parent, const GenTL::Producer::DeviceInfo& info,
                    GenTL::DEVICE_ACCESS_FLAGS flags, ipc_rpc::client_object_handle device);
    ~device_instance() override;

    [[nodiscard]] device_remote_port& remote_port() noexcept { return *gev_port; }
    // Whether the camera can send packets again; known after init.
    [[nodiscard]] bool supports_resend() const noexcept { return resend_supported; }
    [[nodiscard]] resend_settings& resends() noexcept { return resend; }
    // Queues an event as if the camera had sent it. `event_id` below 0x10000, `timestamp` in camera ticks. Any thread.
    void report_software_event(uint64_t event_id, uint64_t timestamp);

protected:
    std::shared_ptr<gds_producer::producer_device_remote_port_base>
    open_remote_port(const std::string& display_name) override;
    GenTL::Error init_remote_port(gds_producer::producer_device_remote_port_base& port) override;
    void handle_event_message(const ipc_rpc::event_message& message) override;
    std::vector<std::string> data_stream_ids_() override;
    std::expected<std::shared_ptr<GenTL::Producer::IDataStream>, GenTL::Error>
    create_data_stream_(const std::string& stream_id) override;

private:
    // Dropped while no consumer has registered for the camera's events.
    void deliver_event_packet(std::span<const std::byte> packet);

    std::shared_ptr<device_remote_port> gev_port;
    GenTL::Producer::event_ptr<remote_device_event> remote_event;
    bool resend_supported = false;
    resend_settings resend;
};

} // namespace gevdrv::gentl
