// Bootstrap registers of the stream channels.
#pragma once

#include <cstdint>

namespace gev::streamchannel::impl {

inline constexpr uint32_t register_timeout_ms = 3000;

inline constexpr uint32_t stream_capability = 0x092C;
inline constexpr uint32_t stream_capability_source_port = 0x80000000;

enum class stream_register : uint32_t {
    port = 0x0D00,        // SCP: the host's port; 0 closes the channel
    packet_size = 0x0D04, // SCPS
    destination = 0x0D18, // SCDA: the host's IPv4 address
    source_port = 0x0D1C, // SCSP
};

// Each channel has a block of 64 bytes.
[[nodiscard]] constexpr uint32_t address_of(stream_register which, uint32_t channel_index) {
    return static_cast<uint32_t>(which) + 64 * channel_index;
}

} // namespace gev::streamchannel::impl
