#include <gentl_producer/Error.h>

#include <array>

namespace GenTL {

namespace {

// Index is the negated distance from GC_ERR_ERROR.
constexpr std::array default_texts{"Generic Error",
                                   "GCInitLib was not called",
                                   "Function is not implemented",
                                   "Resource in use",
                                   "Access Denied",
                                   "Invalid Handle",
                                   "Invalid ID specified",
                                   "No Data",
                                   "Invalid Parameter",
                                   "IO Error",
                                   "Timeout",
                                   "Operation Aborted",
                                   "Invalid Buffer",
                                   "Not Available",
                                   "Invalid Address",
                                   "Buffer too small",
                                   "Invalid Index",
                                   "Error parsing chunk data",
                                   "Invalid Value specified",
                                   "Resource Exhausted",
                                   "Out of memory",
                                   "Busy",
                                   "Ambiguous"};
static_assert(GC_ERR_ERROR - static_cast<int>(default_texts.size()) + 1 == GC_ERR_AMBIGUOUS);

} // namespace

std::string error_text(GC_ERROR code) {
    if (code == GC_ERR_SUCCESS) return "No Error";
    if (code <= GC_ERR_ERROR && code >= GC_ERR_AMBIGUOUS) {
        return default_texts[static_cast<size_t>(GC_ERR_ERROR - code)];
    }
    return fmt::format("Unknown Error ID: {}", code);
}

} // namespace GenTL
