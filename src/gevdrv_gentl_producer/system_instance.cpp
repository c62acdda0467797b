#include "system_instance.h"

#include "interface_instance.h"

namespace gevdrv::gentl {

std::expected<std::shared_ptr<GenTL::Producer::IInterface>, GenTL::Error>
system_instance::make_interface_(const GenTL::Producer::InterfaceInfo& info, ipc_rpc::client_object_handle handle) {
    auto opened = std::make_shared<interface_instance>(*this, info, std::move(handle));
    if (GenTL::Error error = opened->init(); error.failed()) return std::unexpected(std::move(error));
    return opened;
}

} // namespace gevdrv::gentl
