// The bootstrap registers of every GigE Vision device: addresses, and the bits in them.
#pragma once

#include <cstdint>

namespace gev {

inline constexpr uint16_t control_port = 3956; // UDP, of every device

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
inline constexpr uint32_t stream_port = 0x0D00; // of the host; 0 closes the channel
inline constexpr uint32_t stream_packet_size = 0x0D04;
inline constexpr uint32_t stream_packet_delay = 0x0D08;
inline constexpr uint32_t stream_address = 0x0D18;
inline constexpr uint32_t stream_source_port = 0x0D1C;
inline constexpr uint32_t stream_channel_capability = 0x0D20;
inline constexpr uint32_t stream_channel_configuration = 0x0D24;

// Of the first stream channel, as they stand above; each channel has a block of 64 bytes.
[[nodiscard]] constexpr uint32_t of_stream_channel(uint32_t first_channels, uint32_t channel_index) {
    return first_channels + 64 * channel_index;
}
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

} // namespace gev
