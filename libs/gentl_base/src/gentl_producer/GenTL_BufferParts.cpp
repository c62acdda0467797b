// Exported functions on the parts of a buffer, for consumers that refuse a library without them.
#include "CallFrame.h"

using namespace GenTL::Producer;

namespace GenTL {

namespace {

// Our buffers have one part, which is what consumers conclude from any failure.
Error no_parts(IDataStream& stream, BUFFER_HANDLE hBuffer, const void* out_parameter, const char* null_text) {
    if (out_parameter == nullptr) return {GC_ERR_INVALID_PARAMETER, std::string{null_text}};
    if (Error error = stream.FindBuffer(hBuffer); error.failed()) return error;
    return Error{GC_ERR_NO_DATA};
}

} // namespace

GC_API DSGetNumBufferParts(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, uint32_t* piNumParts) {
    return handle_call<IDataStream>(
        "GenTL::DSGetNumBufferParts", ORV_HERE, BufferOfStream{hDataStream, hBuffer},
        ORV_ARGS(ORV_ARG(hDataStream), ORV_ARG(hBuffer), ORV_ARG(piNumParts)),
        [&](IDataStream& object) { return no_parts(object, hBuffer, piNumParts, "piNumParts == nullptr"); }, no_args);
}

GC_API DSGetBufferPartInfo(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, uint32_t iPartIndex,
                           BUFFER_PART_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) {
    return handle_call<IDataStream>(
        "GenTL::DSGetBufferPartInfo", ORV_HERE, BufferOfStream{hDataStream, hBuffer},
        ORV_ARGS(ORV_ARG(hDataStream), ORV_ARG(hBuffer), ORV_ARG(iPartIndex), ORV_ENUM(BUFFER_PART_INFO_CMD, iInfoCmd),
                 ORV_ARG(piType), ORV_ARG(pBuffer), ORV_ARG(piSize)),
        [&](IDataStream& object) {
            return no_parts(object, hBuffer, piType == nullptr ? static_cast<const void*>(piType) : piSize,
                            piType == nullptr ? "piType == nullptr" : "piSize == nullptr");
        },
        no_args);
}

} // namespace GenTL
