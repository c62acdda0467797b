// GigE Vision control protocol: commands and status values, for both ends.
#pragma once

#include <gev_registers/registers.h>
#include <gige/wire.h>

#include <array>
#include <cstdint>
#include <optional>
#include <span>

namespace gige::gvcp {

inline constexpr uint16_t port = gev::control_port;
inline constexpr std::byte key{0x42};
inline constexpr std::size_t header_size = 8;
inline constexpr std::size_t max_body = 540;
inline constexpr std::size_t max_datagram = header_size + max_body;
inline constexpr std::size_t max_memory_access = 536; // bytes in one READMEM or WRITEMEM, a multiple of 4
inline constexpr std::size_t discovery_size = 248;
inline constexpr std::size_t force_ip_size = 56;

namespace flag {
inline constexpr uint8_t acknowledge = 0x01;
inline constexpr uint8_t extended_ids = 0x10;
inline constexpr uint8_t broadcast_acknowledge = 0x10; // of DISCOVERY
inline constexpr uint8_t scheduled = 0x80;             // of ACTION
} // namespace flag

enum class command : uint16_t {
    discovery = 0x0002,
    discovery_ack = 0x0003,
    force_ip = 0x0004,
    force_ip_ack = 0x0005,
    packet_resend = 0x0040,
    read_reg = 0x0080,
    read_reg_ack = 0x0081,
    write_reg = 0x0082,
    write_reg_ack = 0x0083,
    read_mem = 0x0084,
    read_mem_ack = 0x0085,
    write_mem = 0x0086,
    write_mem_ack = 0x0087,
    pending_ack = 0x0089,
    event = 0x00C0,
    event_ack = 0x00C1,
    event_data = 0x00C2,
    event_data_ack = 0x00C3,
    action = 0x0100,
    action_ack = 0x0101,
};

enum class status : uint16_t {
    success = 0,
    not_implemented = 0x8001,
    invalid_parameter = 0x8002,
    invalid_address = 0x8003,
    write_protect = 0x8004,
    bad_alignment = 0x8005,
    access_denied = 0x8006,
    busy = 0x8007,
    local_problem = 0x8008,
    message_mismatch = 0x8009,
    invalid_protocol = 0x800A,
    no_message = 0x800B,
    packet_unavailable = 0x800C,
    data_overrun = 0x800D,
    invalid_header = 0x800E,
    packet_not_yet_available = 0x8010,
    packet_and_previous_removed = 0x8011,
    packet_removed = 0x8012,
    no_reference_time = 0x8013,
    packet_temporarily_unavailable = 0x8014,
    overflow = 0x8015,
    action_late = 0x8016,
    generic_error = 0x8FFF,
};

namespace reg = gev::reg;
namespace bits = gev::bits;

struct command_header {
    uint8_t flags{};
    command code{};
    uint16_t length{};
    uint16_t request_id{};
};

// The header of a command datagram, if it is one and its length field fits what was received.
[[nodiscard]] inline std::optional<command_header> parse_command(std::span<const std::byte> datagram) noexcept {
    if (datagram.size() < header_size || datagram[0] != key) return {};
    const command_header header{std::to_integer<uint8_t>(datagram[1]), command{load16(&datagram[2])},
                                load16(&datagram[4]), load16(&datagram[6])};
    if (header.request_id == 0 || header.length > datagram.size() - header_size) return {};
    return header;
}

inline void store_command(std::byte* to, const command_header& header) noexcept {
    to[0] = key;
    to[1] = std::byte{header.flags};
    store16(to + 2, static_cast<uint16_t>(header.code));
    store16(to + 4, header.length);
    store16(to + 6, header.request_id);
}

struct ack_header {
    status result{};
    command code{};
    uint16_t length{};
    uint16_t request_id{};
};

[[nodiscard]] inline std::optional<ack_header> parse_ack(std::span<const std::byte> datagram) noexcept {
    if (datagram.size() < header_size) return {};
    const ack_header header{status{load16(&datagram[0])}, command{load16(&datagram[2])}, load16(&datagram[4]),
                            load16(&datagram[6])};
    if (header.length > datagram.size() - header_size) return {};
    return header;
}

inline void store_ack(std::byte* to, const ack_header& header) noexcept {
    store16(to, static_cast<uint16_t>(header.result));
    store16(to + 2, static_cast<uint16_t>(header.code));
    store16(to + 4, header.length);
    store16(to + 6, header.request_id);
}

} // namespace gige::gvcp
