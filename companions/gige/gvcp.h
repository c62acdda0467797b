// GigE Vision control protocol: commands, status values and bootstrap registers. One table for both ends.
#pragma once

#include <gige/wire.h>

#include <array>
#include <cstdint>
#include <optional>
#include <span>

namespace gige::gvcp {

inline constexpr uint16_t port = 3956;
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

namespace reg {
inline constexpr uint32_t version = 0x0000;
inline constexpr uint32_t device_mode = 0x0004;
inline constexpr uint32_t mac_high = 0x0008;
inline constexpr uint32_t mac_low = 0x000C;
inline constexpr uint32_t ip_config_supported = 0x0010;
inline constexpr uint32_t ip_config_current = 0x0014;
inline constexpr uint32_t current_address = 0x0024;
inline constexpr uint32_t current_mask = 0x0034;
inline constexpr uint32_t current_gateway = 0x0044;
inline constexpr uint32_t vendor = 0x0048;         // 32 bytes
inline constexpr uint32_t model = 0x0068;          // 32
inline constexpr uint32_t device_version = 0x0088; // 32
inline constexpr uint32_t information = 0x00A8;    // 48
inline constexpr uint32_t serial = 0x00D8;         // 16
inline constexpr uint32_t user_name = 0x00E8;      // 16
inline constexpr uint32_t first_url = 0x0200;      // 512
inline constexpr uint32_t second_url = 0x0400;     // 512
inline constexpr uint32_t interface_count = 0x0600;
inline constexpr uint32_t persistent_address = 0x064C;
inline constexpr uint32_t persistent_mask = 0x065C;
inline constexpr uint32_t persistent_gateway = 0x066C;
inline constexpr uint32_t message_channel_count = 0x0900;
inline constexpr uint32_t stream_channel_count = 0x0904;
inline constexpr uint32_t stream_capability = 0x092C;
inline constexpr uint32_t stream_configuration = 0x0930;
inline constexpr uint32_t control_capability = 0x0934;
inline constexpr uint32_t heartbeat_timeout = 0x0938; // ms
inline constexpr uint32_t tick_frequency_high = 0x093C;
inline constexpr uint32_t tick_frequency_low = 0x0940;
inline constexpr uint32_t timestamp_control = 0x0944;
inline constexpr uint32_t timestamp_high = 0x0948;
inline constexpr uint32_t timestamp_low = 0x094C;
inline constexpr uint32_t discovery_delay = 0x0950;
inline constexpr uint32_t control_configuration = 0x0954;
inline constexpr uint32_t privilege = 0x0A00;
inline constexpr uint32_t primary_port = 0x0A04; // of who has the privilege; with the bit has_primary
inline constexpr uint32_t primary_address = 0x0A14;
inline constexpr uint32_t message_port = 0x0B00;
inline constexpr uint32_t message_address = 0x0B10;
inline constexpr uint32_t message_timeout = 0x0B14; // ms
inline constexpr uint32_t message_retries = 0x0B18;
inline constexpr uint32_t message_source_port = 0x0B1C;
inline constexpr uint32_t stream_port = 0x0D00; // stream channel n: add 0x40 * n
inline constexpr uint32_t stream_packet_size = 0x0D04;
inline constexpr uint32_t stream_packet_delay = 0x0D08;
inline constexpr uint32_t stream_address = 0x0D18;
inline constexpr uint32_t stream_source_port = 0x0D1C;
inline constexpr uint32_t stream_channel_capability = 0x0D20;
inline constexpr uint32_t stream_channel_configuration = 0x0D24;
} // namespace reg

namespace bits {
inline constexpr uint32_t ip_persistent = 0x1;
inline constexpr uint32_t ip_dhcp = 0x2;
inline constexpr uint32_t ip_link_local = 0x4;

inline constexpr uint32_t stream_source_port = 0x80000000; // of stream_capability
inline constexpr uint32_t stream_legacy_ids = 0x40000000;
inline constexpr uint32_t stream_extended_ids = 0x40000000; // of stream_configuration

inline constexpr uint32_t can_concatenate = 0x1; // of control_capability
inline constexpr uint32_t can_write_mem = 0x2;
inline constexpr uint32_t can_resend = 0x4;
inline constexpr uint32_t can_event = 0x8;
inline constexpr uint32_t can_event_data = 0x10;
inline constexpr uint32_t can_pending_ack = 0x20;
inline constexpr uint32_t can_action = 0x40;
inline constexpr uint32_t has_primary = 0x08000000; // the registers of the primary application
inline constexpr uint32_t can_disable_heartbeat = 0x20000000;
inline constexpr uint32_t has_serial = 0x40000000;
inline constexpr uint32_t has_user_name = 0x80000000;

inline constexpr uint32_t heartbeat_disabled = 0x1; // of control_configuration
inline constexpr uint32_t pending_ack_on = 0x4;

inline constexpr uint32_t timestamp_latch = 0x2; // of timestamp_control
inline constexpr uint32_t timestamp_reset = 0x1;

inline constexpr uint32_t exclusive = 0x1; // of privilege
inline constexpr uint32_t control = 0x2;
inline constexpr uint32_t switchover = 0x4;

inline constexpr uint32_t fire_test_packet = 0x80000000; // of stream_packet_size
inline constexpr uint32_t do_not_fragment = 0x40000000;
} // namespace bits

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
