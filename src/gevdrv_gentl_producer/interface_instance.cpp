#include "interface_instance.h"

#include "device_instance.h"

namespace gevdrv::gentl {

std::expected<std::shared_ptr<GenTL::Producer::IDevice>, GenTL::Error>
interface_instance::make_device_(const GenTL::Producer::DeviceInfo& info, GenTL::DEVICE_ACCESS_FLAGS flags,
                                 ipc_rpc::client_object_handle opened) {
    auto device = std::make_shared<device_instance>(*this, info, flags, std::move(opened));
    if (GenTL::Error error = device->init(); error.failed()) return std::unexpected(std::move(error));
    return device;
}

} // namespace gevdrv::gentl
