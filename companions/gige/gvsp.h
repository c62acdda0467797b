// GigE Vision stream protocol: the datagrams a camera sends, written in both id forms.
#pragma once

#include <gige/gvcp.h>

namespace gige::gvsp {

inline constexpr std::size_t ip_udp_header = 28; // the packet size registers count it
inline constexpr std::size_t standard_header = 8;
inline constexpr std::size_t extended_header = 20;

enum class format : uint8_t { leader = 1, trailer = 2, payload = 3 };

namespace payload_type {
inline constexpr uint16_t image = 1;
inline constexpr uint16_t chunk = 4;           // standard ids only
inline constexpr uint16_t extended_chunk = 5;  // standard ids only
inline constexpr uint16_t chunk_flag = 0x4000; // extended ids only, on top of the type
} // namespace payload_type

inline constexpr uint16_t status_resend = 0x0100; // resend mark of the standard form; the extended form has a flag

struct packet_header {
    bool extended{};
    bool resend{};
    uint64_t block_id{};
    uint32_t packet_id{};
    format kind{};
    gvcp::status result{};
};

[[nodiscard]] constexpr std::size_t header_size(bool extended) noexcept {
    return extended ? extended_header : standard_header;
}

// Image bytes that one payload packet of this packet size carries.
[[nodiscard]] constexpr std::size_t payload_per_packet(std::size_t packet_size, bool extended) noexcept {
    const auto overhead = ip_udp_header + header_size(extended);
    return packet_size > overhead ? packet_size - overhead : 0;
}

// Writes 8 or 20 bytes and returns how many.
inline std::size_t store_header(std::byte* to, const packet_header& header) noexcept {
    auto result = static_cast<uint16_t>(header.result);
    if (header.extended) {
        store16(to, result);
        store16(to + 2, header.resend ? 1 : 0);
        store32(to + 4, 0);
        to[4] = std::byte{0x80} | static_cast<std::byte>(header.kind);
        store64(to + 8, header.block_id);
        store32(to + 16, header.packet_id);
        return extended_header;
    }
    if (header.resend && result == 0) result = status_resend;
    store16(to, result);
    store16(to + 2, static_cast<uint16_t>(header.block_id));
    store32(to + 4, header.packet_id & 0xFFFFFF);
    to[4] = static_cast<std::byte>(header.kind);
    return standard_header;
}

} // namespace gige::gvsp
