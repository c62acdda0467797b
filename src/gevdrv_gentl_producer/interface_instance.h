// The GigE Vision interface module.
#pragma once

#include <gds_gentl_producer/producer_interface_base.h>

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
};

} // namespace gevdrv::gentl
