// What an IP packet takes of an Ethernet link.
#pragma once

#include <algorithm>
#include <cstddef>

namespace gige {

inline constexpr std::size_t ethernet_header = 18;   // addresses, type and checksum
inline constexpr std::size_t ethernet_gap = 20;      // preamble, start of frame, gap to the next
inline constexpr std::size_t ethernet_smallest = 46; // shorter contents are filled up

// Bytes of the link's time, for a packet of so many with its IP header. Without VLAN tags.
[[nodiscard]] constexpr std::size_t wire_bytes(std::size_t ip_bytes) noexcept {
    return std::max(ip_bytes, ethernet_smallest) + ethernet_header + ethernet_gap;
}

} // namespace gige
