// Exported functions of event sources.
#include "CallFrame.h"

using namespace GenTL::Producer;

namespace GenTL {

GC_API GCRegisterEvent(EVENTSRC_HANDLE hEventSrc, EVENT_TYPE iEventID, EVENT_HANDLE* phEvent) {
    return handle_call<IEventSource>(
        "GenTL::GCRegisterEvent", ORV_HERE, hEventSrc,
        ORV_ARGS(ORV_ARG(hEventSrc), ORV_ENUM(EVENT_TYPE, iEventID), ORV_ARG(phEvent)),
        [&](IEventSource& object) { return object.RegisterEvent(iEventID, phEvent); }, ORV_ARGS(ORV_OUT(phEvent)));
}

GC_API GCUnregisterEvent(EVENTSRC_HANDLE hEventSrc, EVENT_TYPE iEventID) {
    return handle_call<IEventSource>(
        "GenTL::GCUnregisterEvent", ORV_HERE, hEventSrc, ORV_ARGS(ORV_ARG(hEventSrc), ORV_ENUM(EVENT_TYPE, iEventID)),
        [&](IEventSource& object) { return object.UnregisterEvent(iEventID); }, no_args);
}

} // namespace GenTL
