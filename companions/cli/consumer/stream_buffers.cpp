#include "stream_buffers.h"

#include <algorithm>

namespace cli {

using namespace GenTL;

void announce_buffers(const gentl_library& lib, const tl_stream& stream, const node_map& remote, size_t count) {
    const size_t payload = stream_info<bool8_t>(lib, stream, STREAM_INFO_DEFINES_PAYLOADSIZE) != 0
                               ? stream_info<size_t>(lib, stream, STREAM_INFO_PAYLOAD_SIZE)
                               : static_cast<size_t>(require_integer(remote, "PayloadSize"));
    for (size_t i = std::max(count, stream_info<size_t>(lib, stream, STREAM_INFO_BUF_ANNOUNCE_MIN)); i > 0; --i) {
        BUFFER_HANDLE buffer = nullptr;
        lib.check("DSAllocAndAnnounceBuffer", lib.DSAllocAndAnnounceBuffer(stream.get(), payload, nullptr, &buffer));
        lib.check("DSQueueBuffer", lib.DSQueueBuffer(stream.get(), buffer));
    }
}

} // namespace cli
