// The library's own memory for frames.
#pragma once

#include "session.h"

namespace cli {

// Announces and queues so many buffers of the payload's size, or more where the producer wants more.
void announce_buffers(const gentl_library& lib, const tl_stream& stream, const node_map& remote, size_t count);

template <class T>
T stream_info(const gentl_library& lib, const tl_stream& stream, GenTL::STREAM_INFO_CMD command) {
    return ask_value<T>(lib, "DSGetInfo", [&](GenTL::INFO_DATATYPE* type, void* value, size_t* size) {
        return lib.DSGetInfo(stream.get(), command, type, value, size);
    });
}

} // namespace cli
