#include "impl/ipc_call_base.h"

#include <gds_helper/log.h>

#include <algorithm>
#include <array>

namespace ipc_rpc {

namespace {

// Fills a block with head and chunk and hands it over.
template <class Packet>
bool send_packet(channel_interface& channel, const Packet& head, std::span<const std::byte> chunk) {
    const std::span<std::byte> block = channel.acquire_block();
    if (block.size() < sizeof(Packet) + chunk.size()) return false;
    std::memcpy(block.data(), &head, sizeof head);
    if (!chunk.empty()) std::memcpy(block.data() + sizeof head, chunk.data(), chunk.size());
    log_packet(channel.get_name(), true, head.header);
    return channel.send_block(block);
}

constexpr std::size_t block_size = 4096;
constexpr std::size_t step_capacity = block_size - sizeof(step_packet);

bool send_steps(channel_interface& channel, rpc_packet_type type, std::uint64_t seq_id,
                std::span<const std::byte> whole, std::size_t sent) {
    while (sent < whole.size()) {
        const auto chunk = whole.subspan(sent, std::min(step_capacity, whole.size() - sent));
        const step_packet step{make_header(type, 0, sizeof(step_packet) + chunk.size(), seq_id), sent};
        if (!send_packet(channel, step, chunk)) return false;
        sent += chunk.size();
    }
    return true;
}

} // namespace

spdlog::logger& ipc_logger() {
    static const std::shared_ptr<spdlog::logger> instance = gds_helper::log::get(gds_helper::log::logger_id::ipc);
    return *instance;
}

void log_packet(std::string_view channel, bool sent, const rpc_packet_header& header) {
    if (!ipc_logger().should_log(spdlog::level::trace)) return;
    ipc_logger().trace("{}, Packet {} type={:10}, id={:4}, len={:5}", channel, sent ? "sent" : "recv",
                       to_text(header.type()), header.seq_id, header.packet_size);
}

bool send_call(channel_interface& channel, std::uint64_t seq_id, std::uint32_t flags, std::uint64_t handle,
               std::string_view function, std::span<const std::byte> parameters) {
    constexpr std::size_t capacity = block_size - sizeof(call_start_packet);
    const auto chunk = parameters.first(std::min(capacity, parameters.size()));
    call_start_packet start{
        make_header(rpc_packet_type::call_start, flags, sizeof(call_start_packet) + chunk.size(), seq_id),
        parameters.size(),
        handle,
        {}};
    function.copy(start.function_name, function_name_size - 1);
    return send_packet(channel, start, chunk) &&
           send_steps(channel, rpc_packet_type::call_step, seq_id, parameters, chunk.size());
}

channel_interface::offered offer_call(channel_interface& channel, std::uint64_t seq_id, std::uint32_t flags,
                                      std::uint64_t handle, std::string_view function,
                                      std::span<const std::byte> parameters) {
    const std::size_t size = sizeof(call_start_packet) + parameters.size();
    if (size > block_size) return channel_interface::offered::would_wait;
    call_start_packet start{
        make_header(rpc_packet_type::call_start, flags, size, seq_id), parameters.size(), handle, {}};
    function.copy(start.function_name, function_name_size - 1);
    std::array<std::byte, block_size> packet;
    std::memcpy(packet.data(), &start, sizeof start);
    if (!parameters.empty()) std::memcpy(packet.data() + sizeof start, parameters.data(), parameters.size());
    log_packet(channel.get_name(), true, start.header);
    return channel.offer(std::span{packet}.first(size));
}

bool send_close(channel_interface& channel, std::uint64_t seq_id, std::uint32_t flags, std::uint64_t handle) {
    const call_close_packet close{make_header(rpc_packet_type::call_close, flags, sizeof(call_close_packet), seq_id),
                                  handle};
    return send_packet(channel, close, {});
}

bool send_result(channel_interface& channel, std::uint64_t seq_id, std::span<const std::byte> result) {
    constexpr std::size_t capacity = block_size - sizeof(ret_start_packet);
    const auto chunk = result.first(std::min(capacity, result.size()));
    const ret_start_packet start{
        make_header(rpc_packet_type::ret_start, 0, sizeof(ret_start_packet) + chunk.size(), seq_id), result.size()};
    return send_packet(channel, start, chunk) &&
           send_steps(channel, rpc_packet_type::ret_step, seq_id, result, chunk.size());
}

void send_ret_err_packet(channel_interface& channel, std::uint64_t seq_id, status code,
                         std::span<const std::byte> payload) {
    if (payload.size() > block_size - sizeof(ret_err_packet)) {
        ipc_logger().warn("{}. Error returned with too large param_out_block: seq_id={}, len={}", channel.get_name(),
                          seq_id, payload.size());
        payload = {};
    }
    const ret_err_packet error{
        make_header(rpc_packet_type::ret_err, 0, sizeof(ret_err_packet) + payload.size(), seq_id),
        static_cast<std::int32_t>(code), 0};
    static_cast<void>(send_packet(channel, error, payload)); // without a block the reply is dropped
}

} // namespace ipc_rpc
