// Building and splitting packets; what caller and callee have in common.
#pragma once

#include "impl/channel_interface.h"

#include <ipc_rpc/rpc_packet.h>
#include <ipc_rpc/status.h>

#include <spdlog/logger.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>

namespace ipc_rpc {

// Called at rates where looking a logger up would show.
[[nodiscard]] spdlog::logger& ipc_logger();

// A packet's fixed part, if the packet is long enough for it.
template <class Head>
[[nodiscard]] std::optional<Head> read_head(std::span<const std::byte> packet) noexcept {
    Head head;
    if (packet.data() == nullptr || packet.size() < sizeof head) return std::nullopt;
    std::memcpy(&head, packet.data(), sizeof head);
    return head;
}

// Each sends whole packets and returns false when the channel is closed.
[[nodiscard]] bool send_call(channel_interface& channel, std::uint64_t seq_id, std::uint64_t handle,
                             std::string_view function_name, std::span<const std::byte> parameters,
                             std::uint32_t flags);
[[nodiscard]] bool send_close(channel_interface& channel, std::uint64_t seq_id, std::uint64_t handle,
                              std::uint32_t flags);
[[nodiscard]] bool send_result(channel_interface& channel, std::uint64_t seq_id, std::span<const std::byte> result);
// A payload that does not fit its one block is left out, with a warning.
[[nodiscard]] bool send_ret_err_packet(channel_interface& channel, std::uint64_t seq_id, status why,
                                       std::span<const std::byte> payload = {});

// Packet traces, behind a level test.
void log_packet_sent(std::string_view channel_name, std::span<const std::byte> block) noexcept;
void log_packet_received(std::string_view channel_name, const rpc_packet_header& header) noexcept;

} // namespace ipc_rpc
