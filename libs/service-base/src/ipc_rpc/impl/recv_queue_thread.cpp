#include "impl/recv_queue_thread.h"

#include "impl/ipc_call_base.h"

#include <gds_helper/process.h>

#include <algorithm>
#include <array>
#include <bit>
#include <utility>

namespace ipc_rpc {

namespace {

// Trivial on purpose: nothing is left to run for it when the library is unloaded.
thread_local const shared_memory_queue* received_here = nullptr;

} // namespace

std::span<const std::byte> check_packet(std::span<const std::byte> block, std::string_view channel_name) {
    const auto header = read_head<rpc_packet_header>(block);
    if (!header) {
        ipc_logger().error("{} failed with: Packet too small ({} bytes)", channel_name, block.size());
        return {};
    }
    // One that claims less than its own header is too small as well.
    if (header->packet_size < sizeof *header) {
        ipc_logger().error("{} failed with: Packet too small ({} bytes)", channel_name, header->packet_size);
        return {};
    }
    if (header->packet_size > block.size()) {
        ipc_logger().error("{} failed with: rpc_packet_header::packet_size too large ({} bytes)", channel_name,
                           header->packet_size);
        return {};
    }
    const auto type = header->type();
    if (type == rpc_packet_type::service_announce || type == rpc_packet_type::client_announce) {
        ipc_logger().error("Announce packets should be sent via tcp channel. Id: {}, seq_id={}, pckt-size={}",
                           static_cast<int>(type), header->seq_id, header->packet_size);
        return {};
    }
    if (type == rpc_packet_type::invalid || type > rpc_packet_type::ret_err) {
        ipc_logger().error("Unknown rpc_packet_type received. Id: {}, seq_id={}, pckt-size={}", static_cast<int>(type),
                           header->seq_id, header->packet_size);
        return {};
    }
    log_packet_received(channel_name, *header);
    return block.first(header->packet_size);
}

recv_queue_thread::recv_queue_thread(std::shared_ptr<shared_memory_queue> from, targets where, std::string thread_name)
    : queue(std::move(from)), to(std::move(where)), name(std::move(thread_name)), thread([this] { loop(); }) {}

recv_queue_thread::~recv_queue_thread() {
    queue->shut();
    thread.join();
}

bool recv_queue_thread::receives(const shared_memory_queue& from) noexcept { return received_here == &from; }

bool recv_queue_thread::dispatch(std::span<const std::byte> block) {
    const auto packet = check_packet(block, name);
    if (packet.empty()) return false;
    if (read_head<rpc_packet_header>(packet)->type() < rpc_packet_type::ret_start) {
        to.callee.receive_rpc_packet(packet);
    } else {
        to.caller.receive_packet(packet);
    }
    return true;
}

bool recv_queue_thread::receive_span(std::span<const std::byte> block) {
    if (!to.on_bad_packet) {
        static_cast<void>(dispatch(block));
        return true;
    }
    std::array<std::byte, queue_block_size> copy;
    std::ranges::copy(block, copy.begin());
    return dispatch(std::span{copy}.first(block.size()));
}

void recv_queue_thread::loop() {
    gds_helper::set_thread_name(name);
    received_here = queue.get();
    bool first = true;
    for (;;) {
        const auto item = queue->receive();
        if (std::holds_alternative<std::monostate>(item)) return;
        if (const auto* block = std::get_if<std::span<std::byte>>(&item)) {
            if (std::exchange(first, false) && to.on_first_packet) to.on_first_packet();
            const bool good = receive_span(*block);
            queue->release_block(*block);
            if (!good) {
                to.on_bad_packet();
                return;
            }
        } else if (to.on_notification) {
            std::uint64_t base = 0;
            for (std::uint64_t word : std::get<notification_words>(item)) {
                for (; word != 0; word &= word - 1) {
                    to.on_notification(base + static_cast<std::uint64_t>(std::countr_zero(word)));
                }
                base += 64;
            }
        }
    }
}

} // namespace ipc_rpc
