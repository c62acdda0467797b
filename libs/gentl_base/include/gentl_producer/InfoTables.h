// Info commands that two modules answer from the same record.
#pragma once

#include <gentl_producer/Error.h>
#include <gentl_producer/ModuleInfo.h>

#include <string_view>

namespace GenTL::Producer {

Error answer_interface_info(const InterfaceInfo& info, INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                            void* pBuffer, size_t* piSize);
// As an interface answers for a device that need not be open.
Error answer_device_info(const DeviceInfo& info, DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                         size_t* piSize);

// The standard's enumeration entry for a transport layer type: "GEV" is "GigEVision", "U3V" is "USB3Vision".
[[nodiscard]] constexpr std::string_view tl_type_entry(std::string_view tl_type) {
    return tl_type == "GEV" ? "GigEVision" : tl_type == "U3V" ? "USB3Vision" : tl_type;
}

} // namespace GenTL::Producer
