// Exported functions of ports: every module, and the remote device.
#include "CallFrame.h"

using namespace GenTL::Producer;

namespace GenTL {

GC_API GCGetNumPortURLs(PORT_HANDLE hPort, uint32_t* piNumURLs) {
    return handle_call<IPort>(
        "GenTL::GCGetNumPortURLs", ORV_HERE, hPort, ORV_ARGS(ORV_ARG(hPort), ORV_ARG(piNumURLs)),
        [&](IPort& object) {
            if (piNumURLs == nullptr) return Error{GC_ERR_INVALID_PARAMETER, "piNumURLs == nullptr"};
            return object.GetNumURLs(piNumURLs);
        },
        ORV_ARGS(ORV_OUT(piNumURLs)));
}

GC_API GCGetPortURL(PORT_HANDLE hPort, char* sURL, size_t* piSize) {
    return handle_call<IPort>(
        "GenTL::GCGetPortURL", ORV_HERE, hPort,
        ORV_ARGS(ORV_ARG(hPort), ORV_ARG(static_cast<void*>(sURL)), ORV_ARG(piSize)),
        [&](IPort& object) { return object.GetURL(sURL, piSize); },
        ORV_ARGS(ORV_ARG(static_cast<const char*>(sURL)), ORV_OUT(piSize)));
}

GC_API GCGetPortURLInfo(PORT_HANDLE hPort, uint32_t iURLIndex, URL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                        void* pBuffer, size_t* piSize) {
    return handle_call<IPort>(
        "GenTL::GCGetPortURLInfo", ORV_HERE, hPort,
        ORV_ARGS(ORV_ARG(hPort), ORV_ARG(iURLIndex), ORV_ENUM(URL_INFO_CMD, iInfoCmd), ORV_ARG(piType),
                 ORV_ARG(pBuffer), ORV_ARG(piSize)),
        [&](IPort& object) { return object.GetURLInfo(iURLIndex, iInfoCmd, piType, pBuffer, piSize); },
        ORV_ARGS(ORV_ARG(Debug::dump_void_ptr(pBuffer, piType)), ORV_OUT(piSize)));
}

GC_API GCGetPortInfo(PORT_HANDLE hPort, PORT_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) {
    return handle_call<IPort>(
        "GenTL::GCGetPortInfo", ORV_HERE, hPort,
        ORV_ARGS(ORV_ARG(hPort), ORV_ENUM(PORT_INFO_CMD, iInfoCmd), ORV_ARG(piType), ORV_ARG(pBuffer), ORV_ARG(piSize)),
        [&](IPort& object) { return object.GetPortInfo(iInfoCmd, piType, pBuffer, piSize); },
        ORV_ARGS(ORV_ARG(Debug::dump_void_ptr(pBuffer, piType)), ORV_OUT(piSize)));
}

GC_API GCReadPort(PORT_HANDLE hPort, uint64_t iAddress, void* pBuffer, size_t* piSize) {
    return handle_call<IPort>(
        "GenTL::GCReadPort", ORV_HERE, hPort,
        ORV_ARGS(ORV_ARG(hPort), ORV_HEX(iAddress), ORV_ARG(pBuffer), ORV_ARG(piSize)),
        [&](IPort& object) {
            if (pBuffer == nullptr) return Error{GC_ERR_INVALID_PARAMETER, "pBuffer == nullptr"};
            if (piSize == nullptr) return Error{GC_ERR_INVALID_PARAMETER, "piSize == nullptr"};
            return object.Read(iAddress, pBuffer, piSize);
        },
        ORV_ARGS(ORV_ARG(Debug::dump_buffer(pBuffer, *piSize)), ORV_OUT(piSize)));
}

GC_API GCWritePort(PORT_HANDLE hPort, uint64_t iAddress, const void* pBuffer, size_t* piSize) {
    return handle_call<IPort>(
        "GenTL::GCWritePort", ORV_HERE, hPort,
        ORV_ARGS(ORV_ARG(hPort), ORV_HEX(iAddress),
                 Debug::argument_text("Debug::dump_buffer( pBuffer, piSize )", Debug::sized(pBuffer, piSize)),
                 ORV_ARG(piSize)),
        [&](IPort& object) {
            if (pBuffer == nullptr) return Error{GC_ERR_INVALID_PARAMETER, "pBuffer == nullptr"};
            if (piSize == nullptr) return Error{GC_ERR_INVALID_PARAMETER, "piSize == nullptr"};
            return object.Write(iAddress, pBuffer, piSize);
        },
        ORV_ARGS(ORV_OUT(piSize)));
}

GC_API GCReadPortStacked(PORT_HANDLE hPort, PORT_REGISTER_STACK_ENTRY* pEntries, size_t* piNumEntries) {
    return handle_call<IPort>(
        "GenTL::GCReadPortStacked", ORV_HERE, hPort,
        ORV_ARGS(ORV_ARG(hPort), ORV_ARG(static_cast<void*>(pEntries)), ORV_ARG(piNumEntries)),
        [&](IPort& object) { return object.ReadStacked(pEntries, piNumEntries); }, ORV_ARGS(ORV_OUT(piNumEntries)));
}

GC_API GCWritePortStacked(PORT_HANDLE hPort, PORT_REGISTER_STACK_ENTRY* pEntries, size_t* piNumEntries) {
    return handle_call<IPort>(
        "GenTL::GCWritePortStacked", ORV_HERE, hPort,
        ORV_ARGS(ORV_ARG(hPort), ORV_ARG(static_cast<void*>(pEntries)), ORV_ARG(piNumEntries)),
        [&](IPort& object) { return object.WriteStacked(pEntries, piNumEntries); }, ORV_ARGS(ORV_OUT(piNumEntries)));
}

} // namespace GenTL
