// Exported functions of events.
#include "CallFrame.h"

using namespace GenTL::Producer;

namespace GenTL {

// An aborted wait is an expected way out: it is traced only at trace level.
GC_API EventGetData(EVENT_HANDLE hEvent, void* pBuffer, size_t* piSize, uint64_t iTimeout) {
    return handle_call<IEvent>(
        "GenTL::EventGetData", ORV_HERE, hEvent,
        ORV_ARGS(ORV_ARG(hEvent), ORV_ARG(pBuffer), ORV_ARG(piSize), ORV_ARG(iTimeout)),
        [&](IEvent& object) { return object.GetData(pBuffer, piSize, iTimeout); },
        ORV_ARGS(ORV_ARG(Debug::dump_buffer(pBuffer, *piSize)), ORV_OUT(piSize)), GC_ERR_ABORT);
}

GC_API EventGetDataInfo(EVENT_HANDLE hEvent, const void* pInBuffer, size_t iInSize, EVENT_DATA_INFO_CMD iInfoCmd,
                        INFO_DATATYPE* piType, void* pOutBuffer, size_t* piOutSize) {
    return handle_call<IEvent>(
        "GenTL::EventGetDataInfo", ORV_HERE, hEvent,
        ORV_ARGS(ORV_ARG(hEvent), ORV_ARG(pInBuffer), ORV_ARG(iInSize), ORV_ENUM(EVENT_DATA_INFO_CMD, iInfoCmd),
                 ORV_ARG(piType), ORV_ARG(pOutBuffer), ORV_ARG(piOutSize)),
        [&](IEvent& object) { return object.GetDataInfo(pInBuffer, iInSize, iInfoCmd, piType, pOutBuffer, piOutSize); },
        ORV_ARGS(ORV_ARG(Debug::dump_void_ptr(pOutBuffer, piType)), ORV_OUT(piOutSize)));
}

GC_API EventGetInfo(EVENT_HANDLE hEvent, EVENT_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                    size_t* piSize) {
    return handle_call<IEvent>(
        "GenTL::EventGetInfo", ORV_HERE, hEvent,
        ORV_ARGS(ORV_ARG(hEvent), ORV_ENUM(EVENT_INFO_CMD, iInfoCmd), ORV_ARG(piType), ORV_ARG(pBuffer),
                 ORV_ARG(piSize)),
        [&](IEvent& object) { return object.GetInfo(iInfoCmd, piType, pBuffer, piSize); },
        ORV_ARGS(ORV_ARG(Debug::dump_void_ptr(pBuffer, piType)), ORV_OUT(piSize)));
}

GC_API EventFlush(EVENT_HANDLE hEvent) {
    return handle_call<IEvent>(
        "GenTL::EventFlush", ORV_HERE, hEvent, ORV_ARGS(ORV_ARG(hEvent)),
        [&](IEvent& object) { return object.Flush(); }, no_args);
}

GC_API EventKill(EVENT_HANDLE hEvent) {
    return handle_call<IEvent>(
        "GenTL::EventKill", ORV_HERE, hEvent, ORV_ARGS(ORV_ARG(hEvent)), [&](IEvent& object) { return object.Kill(); },
        no_args);
}

} // namespace GenTL
