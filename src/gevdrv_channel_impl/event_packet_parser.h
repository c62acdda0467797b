// A camera's event packet (GigE Vision control protocol, EVENTDATA), parsed and made. Reentrant; nothing is copied.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace gev::controlchannel {

inline constexpr size_t gvcp_header_size = 8;
// Header and the largest body; what a consumer's buffer for one event must hold.
inline constexpr size_t max_event_packet_size = 576;

struct event_packet {
    uint16_t event_id = 0;
    uint64_t block_id = 0;  // of the frame the event belongs to; 16 significant bits in the standard form
    uint64_t timestamp = 0; // camera ticks
    // All behind the packet's header, the event's own fields included: a camera's document counts the addresses of an
    // event port from here (timestamp at 8, data at 16 in the standard form). Points into the packet.
    std::span<const std::byte> body;
};

// `packet` may be longer than what its header says; what follows is ignored. Empty for anything but one well-formed
// EVENTDATA packet; packets of an event command that are too short or not supported are logged.
[[nodiscard]] std::optional<event_packet> parse_single_event_cmd_packet(std::span<const std::byte> packet);

// An EVENTDATA packet of the standard form without data. `event_id` has 16 bits on the wire.
[[nodiscard]] std::array<std::byte, gvcp_header_size + 16> make_event_packet(uint16_t event_id, uint64_t timestamp);

} // namespace gev::controlchannel
