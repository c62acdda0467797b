// Exported functions of the device module.
#include "CallFrame.h"

using namespace GenTL::Producer;

namespace GenTL {

GC_API DevClose(DEV_HANDLE hDevice) {
    return handle_call<IDevice>(
        "GenTL::DevClose", ORV_HERE, hDevice, ORV_ARGS(ORV_ARG(hDevice)),
        [&](IDevice& object) {
            return modules_are_parents() ? success() : object.parent_interface().OnDeviceClosed(&object);
        },
        no_args);
}

GC_API DevGetInfo(DEV_HANDLE hDevice, DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) {
    return handle_call<IDevice>(
        "GenTL::DevGetInfo", ORV_HERE, hDevice,
        ORV_ARGS(ORV_ARG(hDevice), ORV_ENUM(DEVICE_INFO_CMD, iInfoCmd), ORV_ARG(piType), ORV_ARG(pBuffer),
                 ORV_ARG(piSize)),
        [&](IDevice& object) { return object.GetInfo(iInfoCmd, piType, pBuffer, piSize); },
        ORV_ARGS(ORV_ARG(Debug::dump_void_ptr(pBuffer, piType)), ORV_OUT(piSize)));
}

GC_API DevGetNumDataStreams(DEV_HANDLE hDevice, uint32_t* piNumDataStreams) {
    return handle_call<IDevice>(
        "GenTL::DevGetNumDataStreams", ORV_HERE, hDevice, ORV_ARGS(ORV_ARG(hDevice), ORV_ARG(piNumDataStreams)),
        [&](IDevice& object) { return object.GetNumDataStreams(piNumDataStreams); },
        ORV_ARGS(ORV_OUT(piNumDataStreams)));
}

GC_API DevGetDataStreamID(DEV_HANDLE hDevice, uint32_t iIndex, char* sDataStreamID, size_t* piSize) {
    return handle_call<IDevice>(
        "GenTL::DevGetDataStreamID", ORV_HERE, hDevice,
        ORV_ARGS(ORV_ARG(hDevice), ORV_ARG(iIndex), ORV_ARG(sDataStreamID), ORV_ARG(piSize)),
        [&](IDevice& object) { return object.GetDataStreamID(iIndex, sDataStreamID, piSize); },
        ORV_ARGS(ORV_ARG(static_cast<const char*>(sDataStreamID)), ORV_OUT(piSize)));
}

GC_API DevOpenDataStream(DEV_HANDLE hDevice, const char* sDataStreamID, DS_HANDLE* phDataStream) {
    return handle_call<IDevice>(
        "GenTL::DevOpenDataStream", ORV_HERE, hDevice,
        ORV_ARGS(ORV_ARG(hDevice), ORV_ARG(sDataStreamID), ORV_ARG(phDataStream)),
        [&](IDevice& object) { return object.OpenDataStream(sDataStreamID, phDataStream); },
        ORV_ARGS(ORV_OUT(phDataStream)));
}

GC_API DevGetParentIF(DEV_HANDLE hDevice, IF_HANDLE* phIface) {
    return handle_call<IDevice>(
        "GenTL::DevGetParentIF", ORV_HERE, hDevice, ORV_ARGS(ORV_ARG(hDevice), ORV_ARG(phIface)),
        [&](IDevice& object) { return object.GetParentIF(phIface); }, ORV_ARGS(ORV_OUT(phIface)));
}

GC_API DevGetPort(DEV_HANDLE hDevice, PORT_HANDLE* phRemoteDevice) {
    return handle_call<IDevice>(
        "GenTL::DevGetPort", ORV_HERE, hDevice, ORV_ARGS(ORV_ARG(hDevice), ORV_ARG(phRemoteDevice)),
        [&](IDevice& object) { return object.GetPort(phRemoteDevice); }, ORV_ARGS(ORV_OUT(phRemoteDevice)));
}

} // namespace GenTL
