// Exported functions of the library itself, and its two diagnostics.
#include "CallFrame.h"

#include <gentl_producer/InfoAnswer.h>
#include <gentl_producer/ObjectTracker.h>

#include <string_view>

using namespace GenTL::Producer;

namespace GenTL {

GC_API GCInitLib(void) {
    return exported_call(
        "GenTL::GCInitLib", ORV_HERE, no_args, [] { return init_library(); }, no_args);
}

GC_API GCInitLibShared(void) {
    return exported_call(
        "GenTL::GCInitLibShared", ORV_HERE, no_args, [] { return init_library_shared(); }, no_args);
}

GC_API GCCloseLib(void) {
    return exported_call(
        "GenTL::GCCloseLib", ORV_HERE, no_args, [] { return close_library(); }, no_args);
}

GC_API GCGetInfo(TL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) {
    return exported_call(
        "GenTL::GCGetInfo", ORV_HERE,
        ORV_ARGS(ORV_ENUM(TL_INFO_CMD, iInfoCmd), ORV_ARG(piType), ORV_ARG(pBuffer), ORV_ARG(piSize)),
        [&] {
            if (!is_initialized()) return Error{GC_ERR_NOT_INITIALIZED};
            return answer_transport_layer_info(system_factory()->transport_layer_info(), iInfoCmd, piType, pBuffer,
                                               piSize);
        },
        ORV_ARGS(ORV_ARG(Debug::dump_void_ptr(pBuffer, piType)), ORV_OUT(piSize)));
}

// The one function that neither clears nor records the last error.
GC_API GCGetLastError(GC_ERROR* piErrorCode, char* sErrText, size_t* piSize) {
    return exported_call<false>(
        "GenTL::GCGetLastError", ORV_HERE, ORV_ARGS(ORV_ARG(piErrorCode), ORV_ARG(sErrText), ORV_ARG(piSize)),
        [&] {
            if (!is_initialized()) return Error{GC_ERR_NOT_INITIALIZED};
            if (piErrorCode == nullptr) return Error{GC_ERR_INVALID_PARAMETER, "piErrorCode == nullptr"};
            const LastError& last = last_error();
            *piErrorCode = last.code;
            const std::string_view stored = last.text;
            return answer_raw_string(sErrText, piSize, stored.empty() ? error_text(last.code) : std::string{stored});
        },
        ORV_ARGS(ORV_OUT(piErrorCode), ORV_ARG(static_cast<const char*>(sErrText)), ORV_OUT(piSize)));
}

extern "C" {

__attribute__((visibility("default"))) int64_t HandleMapCount() {
    const call_in_progress mark;
    return mark ? handle_map().dump_handle_map() : 0;
}

__attribute__((visibility("default"))) int64_t ObjectTrackerCount() {
    const call_in_progress mark;
    auto* tracker = mark ? Util::object_tracker() : nullptr;
    return tracker == nullptr ? 0 : tracker->dump();
}

} // extern "C"

} // namespace GenTL
