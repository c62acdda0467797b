#include <gentl_producer/InfoAnswer.h>
#include <gentl_producer/InfoTables.h>

namespace GenTL::Producer {

Error answer_interface_info(const InterfaceInfo& info, INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                            void* pBuffer, size_t* piSize) {
    switch (iInfoCmd) {
    case INTERFACE_INFO_ID:
        return answer_string(piType, pBuffer, piSize, info.id);
    case INTERFACE_INFO_DISPLAYNAME:
        return answer_string(piType, pBuffer, piSize, info.display_name);
    case INTERFACE_INFO_TLTYPE:
        return answer_string(piType, pBuffer, piSize, info.tl_type);
    default:
        return Error{GC_ERR_NOT_IMPLEMENTED};
    }
}

Error answer_device_info(const DeviceInfo& info, DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                         size_t* piSize) {
    const auto text = [&](std::string_view value) { return answer_string(piType, pBuffer, piSize, value); };
    switch (iInfoCmd) {
    case DEVICE_INFO_ID:
        return text(info.id);
    case DEVICE_INFO_VENDOR:
        return text(info.vendor);
    case DEVICE_INFO_MODEL:
        return text(info.model);
    case DEVICE_INFO_TLTYPE:
        return text(info.tl_type);
    case DEVICE_INFO_DISPLAYNAME:
        return text(info.display_name);
    case DEVICE_INFO_ACCESS_STATUS:
        return answer_int32(piType, pBuffer, piSize, info.access_status);
    case DEVICE_INFO_USER_DEFINED_NAME:
        if (!info.user_defined_name) return Error{GC_ERR_NOT_IMPLEMENTED};
        return text(*info.user_defined_name);
    case DEVICE_INFO_SERIAL_NUMBER:
        if (info.serial_number.empty()) return {GC_ERR_NOT_AVAILABLE, "Device without serial number"};
        return text(info.serial_number);
    case DEVICE_INFO_VERSION:
        if (info.version.empty()) return {GC_ERR_NOT_AVAILABLE, "Device without version"};
        return text(info.version);
    case DEVICE_INFO_TIMESTAMP_FREQUENCY:
        return answer_uint64(piType, pBuffer, piSize, 1000000000);
    default:
        return Error{GC_ERR_NOT_IMPLEMENTED};
    }
}

} // namespace GenTL::Producer
