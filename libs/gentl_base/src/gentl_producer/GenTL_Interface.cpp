// Exported functions of the interface module.
#include "CallFrame.h"

using namespace GenTL::Producer;

namespace GenTL {

GC_API IFClose(IF_HANDLE hIface) {
    return handle_call<IInterface>(
        "GenTL::IFClose", ORV_HERE, hIface, ORV_ARGS(ORV_ARG(hIface)),
        [&](IInterface& object) {
            if (modules_are_parents()) return success();
            object.close_children();
            return object.parent_system().OnInterfaceClosed(&object);
        },
        no_args);
}

GC_API IFGetInfo(IF_HANDLE hIface, INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) {
    return handle_call<IInterface>(
        "GenTL::IFGetInfo", ORV_HERE, hIface,
        ORV_ARGS(ORV_ARG(hIface), ORV_ENUM(INTERFACE_INFO_CMD, iInfoCmd), ORV_ARG(piType), ORV_ARG(pBuffer),
                 ORV_ARG(piSize)),
        [&](IInterface& object) { return object.GetInfo(iInfoCmd, piType, pBuffer, piSize); },
        ORV_ARGS(ORV_ARG(Debug::dump_void_ptr(pBuffer, piType)), ORV_OUT(piSize)));
}

GC_API IFGetNumDevices(IF_HANDLE hIface, uint32_t* piNumDevices) {
    return handle_call<IInterface>(
        "GenTL::IFGetNumDevices", ORV_HERE, hIface, ORV_ARGS(ORV_ARG(hIface), ORV_ARG(piNumDevices)),
        [&](IInterface& object) { return object.GetNumDevices(piNumDevices); }, ORV_ARGS(ORV_OUT(piNumDevices)));
}

GC_API IFGetDeviceID(IF_HANDLE hIface, uint32_t iIndex, char* sIDeviceID, size_t* piSize) {
    return handle_call<IInterface>(
        "GenTL::IFGetDeviceID", ORV_HERE, hIface,
        ORV_ARGS(ORV_ARG(hIface), ORV_ARG(iIndex), ORV_ARG(sIDeviceID), ORV_ARG(piSize)),
        [&](IInterface& object) { return object.GetDeviceID(iIndex, sIDeviceID, piSize); },
        ORV_ARGS(ORV_ARG(static_cast<const char*>(sIDeviceID)), ORV_OUT(piSize)));
}

GC_API IFGetDeviceInfo(IF_HANDLE hIface, const char* sDeviceID, DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                       void* pBuffer, size_t* piSize) {
    return handle_call<IInterface>(
        "GenTL::IFGetDeviceInfo", ORV_HERE, hIface,
        ORV_ARGS(ORV_ARG(hIface), ORV_ARG(sDeviceID), ORV_ENUM(DEVICE_INFO_CMD, iInfoCmd), ORV_ARG(piType),
                 ORV_ARG(pBuffer), ORV_ARG(piSize)),
        [&](IInterface& object) { return object.GetDeviceInfo(sDeviceID, iInfoCmd, piType, pBuffer, piSize); },
        ORV_ARGS(ORV_ARG(Debug::dump_void_ptr(pBuffer, piType)), ORV_OUT(piSize)));
}

GC_API IFGetParentTL(IF_HANDLE hIface, TL_HANDLE* phSystem) {
    return handle_call<IInterface>(
        "GenTL::IFGetParentTL", ORV_HERE, hIface, ORV_ARGS(ORV_ARG(hIface), ORV_ARG(phSystem)),
        [&](IInterface& object) { return object.GetParentTL(phSystem); }, ORV_ARGS(ORV_OUT(phSystem)));
}

GC_API IFOpenDevice(IF_HANDLE hIface, const char* sDeviceID, DEVICE_ACCESS_FLAGS iOpenFlags, DEV_HANDLE* phDevice) {
    return handle_call<IInterface>(
        "GenTL::IFOpenDevice", ORV_HERE, hIface,
        ORV_ARGS(ORV_ARG(hIface), ORV_ARG(sDeviceID), ORV_ENUM(DEVICE_ACCESS_FLAGS, iOpenFlags), ORV_ARG(phDevice)),
        [&](IInterface& object) {
            if (iOpenFlags == DEVICE_ACCESS_UNKNOWN) {
                return Error{GC_ERR_INVALID_PARAMETER, "iOpenFlags == GenTL::DEVICE_ACCESS_UNKNOWN"};
            }
            if (iOpenFlags == DEVICE_ACCESS_NONE) {
                return Error{GC_ERR_INVALID_PARAMETER, "iOpenFlags == GenTL::DEVICE_ACCESS_NONE"};
            }
            return object.OpenDevice(sDeviceID, iOpenFlags, phDevice);
        },
        ORV_ARGS(ORV_OUT(phDevice)));
}

GC_API IFUpdateDeviceList(IF_HANDLE hIface, bool8_t* pbChanged, uint64_t iTimeout) {
    return handle_call<IInterface>(
        "GenTL::IFUpdateDeviceList", ORV_HERE, hIface, ORV_ARGS(ORV_ARG(hIface), ORV_ARG(pbChanged), ORV_ARG(iTimeout)),
        [&](IInterface& object) {
            return update_list(pbChanged, [&](bool* changed) { return object.UpdateDeviceList(changed, iTimeout); });
        },
        ORV_ARGS(ORV_OUT(pbChanged)));
}

} // namespace GenTL
