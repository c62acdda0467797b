// The GigE Vision transport layer module.
#pragma once

#include <gds_gentl_producer/producer_system_base.h>

namespace gevdrv::gentl {

class system_instance final : public gds_producer::producer_system_base {
public:
    system_instance(const GenTL::Producer::TransportLayerInfo& info, const gds_producer::producer_environment& shared)
        : producer_system_base(info, shared) {}

protected:
    std::expected<std::shared_ptr<GenTL::Producer::IInterface>, GenTL::Error>
    make_interface_(const GenTL::Producer::InterfaceInfo& info, ipc_rpc::client_object_handle handle) override;
};

} // namespace gevdrv::gentl
