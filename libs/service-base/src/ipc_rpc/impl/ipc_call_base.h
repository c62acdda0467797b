// What both halves of a connection share: packets out of blocks, blocks into buffers, the packet log.
#pragma once

#include "impl/channel_interface.h"

#include <ipc_rpc/rpc_packet.h>
#include <ipc_rpc/status.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace spdlog {
class logger;
}

namespace ipc_rpc {

[[nodiscard]] spdlog::logger& ipc_logger();
void log_packet(std::string_view channel, bool sent, const rpc_packet_header& header);

// Each sends one or several packets; false when the channel is closed.
[[nodiscard]] bool send_call(channel_interface& channel, std::uint64_t seq_id, std::uint32_t flags,
                             std::uint64_t handle, std::string_view function, std::span<const std::byte> parameters);
// Without waiting; the parameters must fit the one packet.
[[nodiscard]] channel_interface::offered offer_call(channel_interface& channel, std::uint64_t seq_id,
                                                    std::uint32_t flags, std::uint64_t handle,
                                                    std::string_view function, std::span<const std::byte> parameters);
[[nodiscard]] bool send_close(channel_interface& channel, std::uint64_t seq_id, std::uint32_t flags,
                              std::uint64_t handle);
bool send_result(channel_interface& channel, std::uint64_t seq_id, std::span<const std::byte> result);
// A payload that does not fit one packet is left out.
void send_ret_err_packet(channel_interface& channel, std::uint64_t seq_id, status code,
                         std::span<const std::byte> payload = {});

// The fixed part of a packet, or nothing when it is too short for one.
template <class Packet>
[[nodiscard]] std::optional<Packet> read_packet(std::span<const std::byte> bytes) {
    if (bytes.size() < sizeof(Packet)) return std::nullopt;
    Packet packet;
    std::memcpy(&packet, bytes.data(), sizeof packet);
    return packet;
}

// A block that arrives in pieces.
struct assembly {
    std::vector<std::byte> bytes;
    std::uint64_t received = 0;

    // False when the piece does not fit.
    [[nodiscard]] bool put(std::uint64_t offset, std::span<const std::byte> chunk) {
        if (offset > bytes.size() || chunk.size() > bytes.size() - offset) return false;
        if (!chunk.empty()) std::memcpy(bytes.data() + offset, chunk.data(), chunk.size());
        received += chunk.size();
        return true;
    }
    [[nodiscard]] bool complete() const noexcept { return received >= bytes.size(); }
};

} // namespace ipc_rpc
