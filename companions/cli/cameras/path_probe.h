// Which packet sizes come through from a camera, when no whole picture does.
#pragma once

#include "../consumer/gentl_library.h"

#include <cstdint>
#include <optional>

namespace cli {

// Has the camera send test packets of falling sizes from `size` on (with IP and UDP headers, as GevSCPSPacketSize) to a
// socket of its own, and returns the largest that came; 0 when not even the smallest did, nothing when the camera takes
// none of the commands. `port` is the camera's, open for control, with no stream under way; its stream registers are
// put back. Takes up to half a second.
[[nodiscard]] std::optional<uint64_t> largest_packet_that_passes(const gentl_library& lib, void* port,
                                                                 uint32_t own_address, uint64_t size);

} // namespace cli
