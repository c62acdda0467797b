#include "event_packet_parser.h"

#include <gds_helper/log.h>

#include <spdlog/logger.h>

#include <concepts>

namespace gev::controlchannel {

namespace {

constexpr uint8_t gvcp_key = 0x42;
constexpr uint8_t flag_extended_id = 0x10;
constexpr uint16_t event_cmd = 0x00C0;
constexpr uint16_t eventdata_cmd = 0x00C2;
constexpr size_t standard_fields = 16;
constexpr size_t extended_fields = 24;

template <std::unsigned_integral T>
T load(std::span<const std::byte> bytes, size_t at) {
    T value = 0;
    for (const std::byte each : bytes.subspan(at, sizeof(T))) {
        value = static_cast<T>(value << 8 | std::to_integer<T>(each));
    }
    return value;
}

template <std::unsigned_integral T>
void store(std::span<std::byte> bytes, size_t at, T value) {
    for (size_t i = sizeof(T); i-- > 0; value = static_cast<T>(value >> 4 >> 4)) {
        bytes[at + i] = static_cast<std::byte>(value & 0xFF);
    }
}

} // namespace

std::optional<event_packet> parse_single_event_cmd_packet(std::span<const std::byte> packet) {
    if (packet.size() < gvcp_header_size || load<uint8_t>(packet, 0) != gvcp_key) return {};
    const auto command = load<uint16_t>(packet, 2);
    const auto length = load<uint16_t>(packet, 4);
    const bool has_request_id = load<uint16_t>(packet, 6) != 0;
    if (!has_request_id || length > max_event_packet_size - gvcp_header_size ||
        length > packet.size() - gvcp_header_size) {
        return {};
    }
    if (command == event_cmd) {
        gds_helper::log::main_logger().warn("Failed to parse GEV EVENT_CMD. Not Implemented");
        return {};
    }
    if (command != eventdata_cmd) return {};

    const bool extended = (load<uint8_t>(packet, 1) & flag_extended_id) != 0;
    const auto body = packet.subspan(gvcp_header_size, length);
    if (body.size() < (extended ? extended_fields : standard_fields)) {
        gds_helper::log::main_logger().warn("Invalid packet received. Length {} is too small for the event-id entry.",
                                            length);
        return {};
    }
    event_packet event{.event_id = load<uint16_t>(body, 2), .body = body};
    event.block_id = extended ? load<uint64_t>(body, 8) : load<uint16_t>(body, 6);
    event.timestamp = load<uint64_t>(body, extended ? 16 : 8);
    return event;
}

std::array<std::byte, gvcp_header_size + standard_fields> make_event_packet(uint16_t event_id, uint64_t timestamp) {
    std::array<std::byte, gvcp_header_size + standard_fields> packet{};
    store(packet, 0, gvcp_key);
    store(packet, 2, eventdata_cmd);
    store<uint16_t>(packet, 4, standard_fields);
    store<uint16_t>(packet, 6, 1); // nobody acknowledges it, but 0 is no request id
    store(packet, gvcp_header_size + 2, event_id);
    store(packet, gvcp_header_size + 8, timestamp);
    return packet;
}

} // namespace gev::controlchannel
