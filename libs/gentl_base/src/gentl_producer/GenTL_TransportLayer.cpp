// Exported functions of the transport layer module.
#include "CallFrame.h"

using namespace GenTL::Producer;

namespace GenTL {

GC_API TLOpen(TL_HANDLE* phTL) {
    return exported_call(
        "GenTL::TLOpen", ORV_HERE, ORV_ARGS(ORV_ARG(phTL)),
        [&] {
            if (!is_initialized()) return Error{GC_ERR_NOT_INITIALIZED};
            if (phTL == nullptr) return Error{GC_ERR_INVALID_PARAMETER, "phTL == nullptr"};
            return open_system(phTL);
        },
        ORV_ARGS(ORV_OUT(phTL)));
}

GC_API TLClose(TL_HANDLE hTL) {
    const call_in_progress mark;
    if (!mark) return GC_ERR_NOT_INITIALIZED;
    held_object<ISystem> held;
    return exported_call(
        "GenTL::TLClose", ORV_HERE, ORV_ARGS(ORV_ARG(hTL)),
        [&] {
            if (Error error = resolve_handle(hTL, held); error.failed()) return error;
            return close_system(held.object);
        },
        no_args);
}

GC_API TLGetInfo(TL_HANDLE hTL, TL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) {
    return handle_call<ISystem>(
        "GenTL::TLGetInfo", ORV_HERE, hTL,
        ORV_ARGS(ORV_ARG(hTL), ORV_ENUM(TL_INFO_CMD, iInfoCmd), ORV_ARG(piType), ORV_ARG(pBuffer), ORV_ARG(piSize)),
        [&](ISystem& object) { return object.GetInfo(iInfoCmd, piType, pBuffer, piSize); },
        ORV_ARGS(ORV_ARG(Debug::dump_void_ptr(pBuffer, piType)), ORV_OUT(piSize)));
}

GC_API TLGetNumInterfaces(TL_HANDLE hTL, uint32_t* piNumIfaces) {
    return handle_call<ISystem>(
        "GenTL::TLGetNumInterfaces", ORV_HERE, hTL, ORV_ARGS(ORV_ARG(hTL), ORV_ARG(piNumIfaces)),
        [&](ISystem& object) { return object.GetNumInterfaces(piNumIfaces); }, ORV_ARGS(ORV_OUT(piNumIfaces)));
}

GC_API TLGetInterfaceID(TL_HANDLE hTL, uint32_t iIndex, char* sID, size_t* piSize) {
    return handle_call<ISystem>(
        "GenTL::TLGetInterfaceID", ORV_HERE, hTL,
        ORV_ARGS(ORV_ARG(hTL), ORV_ARG(iIndex), ORV_ARG(sID), ORV_ARG(piSize)),
        [&](ISystem& object) { return object.GetInterfaceID(iIndex, sID, piSize); },
        ORV_ARGS(ORV_ARG(static_cast<const char*>(sID)), ORV_OUT(piSize)));
}

GC_API TLGetInterfaceInfo(TL_HANDLE hTL, const char* sIfaceID, INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                          void* pBuffer, size_t* piSize) {
    return handle_call<ISystem>(
        "GenTL::TLGetInterfaceInfo", ORV_HERE, hTL,
        ORV_ARGS(ORV_ARG(hTL), ORV_ARG(sIfaceID), ORV_ENUM(INTERFACE_INFO_CMD, iInfoCmd), ORV_ARG(piType),
                 ORV_ARG(pBuffer), ORV_ARG(piSize)),
        [&](ISystem& object) { return object.GetInterfaceInfo(sIfaceID, iInfoCmd, piType, pBuffer, piSize); },
        ORV_ARGS(ORV_ARG(Debug::dump_void_ptr(pBuffer, piType)), ORV_OUT(piSize)));
}

GC_API TLOpenInterface(TL_HANDLE hTL, const char* sIfaceID, IF_HANDLE* phIface) {
    return handle_call<ISystem>(
        "GenTL::TLOpenInterface", ORV_HERE, hTL, ORV_ARGS(ORV_ARG(hTL), ORV_ARG(sIfaceID), ORV_ARG(phIface)),
        [&](ISystem& object) { return object.OpenInterface(sIfaceID, phIface); }, ORV_ARGS(ORV_OUT(phIface)));
}

GC_API TLUpdateInterfaceList(TL_HANDLE hTL, bool8_t* pbChanged, uint64_t iTimeout) {
    return handle_call<ISystem>(
        "GenTL::TLUpdateInterfaceList", ORV_HERE, hTL, ORV_ARGS(ORV_ARG(hTL), ORV_ARG(pbChanged), ORV_ARG(iTimeout)),
        [&](ISystem& object) {
            return update_list(pbChanged, [&](bool* changed) { return object.UpdateInterfaceList(changed, iTimeout); });
        },
        ORV_ARGS(ORV_OUT(pbChanged)));
}

} // namespace GenTL
