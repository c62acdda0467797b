#include "impl/ipc_call_base.h"

#include <gds_helper/log.h>

#include <algorithm>

namespace ipc_rpc {

namespace {

// Fills a block with a head and as much of `data` as fits behind it; returns that count, or nothing when closed.
template <class Head>
std::optional<std::size_t> send_chunk(channel_interface& channel, Head head, std::span<const std::byte> data) {
    const std::span<std::byte> block = channel.acquire_block();
    if (block.size() < sizeof head) return std::nullopt;
    const std::size_t length = std::min(block.size() - sizeof head, data.size());
    head.header.packet_size = static_cast<std::uint32_t>(sizeof head + length);
    std::memcpy(block.data(), &head, sizeof head);
    if (length != 0) std::memcpy(block.data() + sizeof head, data.data(), length);
    if (!channel.send_block(block)) return std::nullopt;
    return length;
}

template <class Head>
bool send_block_in_steps(channel_interface& channel, const Head& first, rpc_packet_type step_type,
                         std::span<const std::byte> data) {
    auto length = send_chunk(channel, first, data);
    std::size_t sent = length.value_or(0);
    while (length && sent < data.size()) {
        length = send_chunk(channel, step_packet{make_header(step_type, 0, 0, first.header.seq_id), sent},
                            data.subspan(sent));
        sent += length.value_or(0);
    }
    return length.has_value();
}

} // namespace

spdlog::logger& ipc_logger() {
    static const auto instance = gds_helper::log::get(gds_helper::log::logger_id::ipc);
    return *instance;
}

bool send_call(channel_interface& channel, std::uint64_t seq_id, std::uint64_t handle, std::string_view function_name,
               std::span<const std::byte> parameters, std::uint32_t flags) {
    call_start_packet head{make_header(rpc_packet_type::call_start, flags, 0, seq_id), parameters.size(), handle, {}};
    function_name.copy(head.function_name, function_name_size - 1);
    return send_block_in_steps(channel, head, rpc_packet_type::call_step, parameters);
}

bool send_close(channel_interface& channel, std::uint64_t seq_id, std::uint64_t handle, std::uint32_t flags) {
    return send_chunk(channel, call_close_packet{make_header(rpc_packet_type::call_close, flags, 0, seq_id), handle},
                      {})
        .has_value();
}

bool send_result(channel_interface& channel, std::uint64_t seq_id, std::span<const std::byte> result) {
    return send_block_in_steps(channel,
                               ret_start_packet{make_header(rpc_packet_type::ret_start, 0, 0, seq_id), result.size()},
                               rpc_packet_type::ret_step, result);
}

bool send_ret_err_packet(channel_interface& channel, std::uint64_t seq_id, status why,
                         std::span<const std::byte> payload) {
    constexpr std::size_t block_size = 4096;
    if (payload.size() > block_size - sizeof(ret_err_packet)) {
        ipc_logger().warn("{}. Error returned with too large param_out_block: seq_id={}, len={}", channel.get_name(),
                          seq_id, payload.size());
        payload = {};
    }
    return send_chunk(
               channel,
               ret_err_packet{make_header(rpc_packet_type::ret_err, 0, 0, seq_id), static_cast<std::int32_t>(why), 0},
               payload)
        .has_value();
}

void log_packet_sent(std::string_view channel_name, std::span<const std::byte> block) noexcept {
    if (!ipc_logger().should_log(spdlog::level::trace)) return;
    if (const auto header = read_head<rpc_packet_header>(block)) {
        ipc_logger().trace("{}, Packet sent type={:10}, id={:4}, len={:5}", channel_name, to_text(header->type()),
                           header->seq_id, header->packet_size);
    }
}

void log_packet_received(std::string_view channel_name, const rpc_packet_header& header) noexcept {
    if (!ipc_logger().should_log(spdlog::level::trace)) return;
    ipc_logger().trace("{}, Packet recv type={:10}, id={:4}, len={:5}", channel_name, to_text(header.type()),
                       header.seq_id, header.packet_size);
}

} // namespace ipc_rpc
