// The GigE Vision interface module: its devices, and features that reach cameras which nobody has opened.
#pragma once

#include <gds_gentl_producer/producer_interface_base.h>

#include <atomic>
#include <cstdint>
#include <string_view>

namespace gevdrv::gentl {

class interface_instance final : public gds_producer::producer_interface_base {
public:
    interface_instance(gds_producer::producer_system_base& parent, const GenTL::Producer::InterfaceInfo& info,
                       ipc_rpc::client_object_handle opened)
        : producer_interface_base(parent, info, std::move(opened)) {}

protected:
    std::expected<std::shared_ptr<GenTL::Producer::IDevice>, GenTL::Error>
    make_device_(const GenTL::Producer::DeviceInfo& info, GenTL::DEVICE_ACCESS_FLAGS flags,
                 ipc_rpc::client_object_handle opened) override;
    void build_register_map(GenTL::Producer::Util::GenApiInterfaceBuilder& builder) override;

private:
    void add_force_ip(GenTL::Producer::Util::GenApiInterfaceBuilder& builder);
    void add_ip_configuration(GenTL::Producer::Util::GenApiInterfaceBuilder& builder);
    void add_actions(GenTL::Producer::Util::GenApiInterfaceBuilder& builder);
    [[nodiscard]] GenTL::Error send_force_ip();
    [[nodiscard]] GenTL::Error send_action(bool to_all_interfaces);
    [[nodiscard]] GenTL::Error execute_device_function(std::string_view name);
    [[nodiscard]] std::expected<uint32_t, GenTL::Error> reachable_status();

    // Values of the features, kept here until a command sends them. IPv4 addresses in host byte order.
    std::atomic<uint32_t> force_ip_address{0};
    std::atomic<uint32_t> force_subnet_mask{0};
    std::atomic<uint32_t> force_gateway{0};
    std::atomic<uint32_t> action_device_key{0};
    std::atomic<uint32_t> action_group_key{0};
    std::atomic<uint32_t> action_group_mask{0};
    std::atomic<uint64_t> action_scheduled_time{0}; // in the cameras' ticks
    std::atomic<bool> action_scheduled_time_enable{false};
    std::atomic<uint32_t> last_reachable_status{0};
};

} // namespace gevdrv::gentl
