#include "impl/ipc_instance.h"

#include <gds_helper/line_budget.h>
#include <gds_helper/process.h>

#include <spdlog/logger.h>

#include <bit>

namespace ipc_rpc {

ipc_instance::ipc_instance(create_params params)
    : name(std::move(params.name)),
      peer(std::move(params.peer)),
      peer_user(params.peer_user),
      at_service(params.at_service),
      owner_process(gds_helper::process_id()),
      send_queue(std::move(params.send)),
      receive_queue(std::move(params.receive)),
      channel(*send_queue, *receive_queue, name + "send"),
      receive_name(name + "recv"),
      caller(channel),
      callee(std::make_shared<rpc_callee_instance>(channel, std::move(params.table), std::move(params.executor),
                                                   std::move(params.call_bytes))),
      on_notification(std::move(params.on_notification)),
      on_first_packet(std::move(params.on_first_packet)),
      on_end(std::move(params.on_end)),
      drops_bad_packets(params.drops_bad_packets) {}

ipc_instance::~ipc_instance() {
    if (gds_helper::process_id() != owner_process) {
        receive_thread.detach(); // it does not exist in this process
        return;
    }
    shutdown();
}

void ipc_instance::start() {
    callee->set_connection(weak_from_this());
    receive_thread = std::thread{[this, lines = gds_helper::log::counted_lines::current()] {
        const gds_helper::log::counted_lines counted{lines};
        receive_main();
    }};
}

void ipc_instance::receive_main() {
    receive_thread_id = std::this_thread::get_id();
    gds_helper::set_thread_name(receive_name);
    try {
        receive_loop();
    } catch (const std::exception& failure) {
        // No memory, mostly. The connection ends; the process goes on.
        ipc_logger().critical("{} failed with: {}", receive_name, failure.what());
    }
    caller.close(); // nobody delivers answers any more
    if (on_end) on_end();
}

void ipc_instance::shutdown() {
    ended = true;
    caller.close();
    send_queue->shut();
    receive_queue->shut();
    callee->release();
    if (receive_thread.joinable()) receive_thread.join();
    callee->stop();
}

bool ipc_instance::is_open() const {
    return !ended && !receive_queue->is_closed() && gds_helper::process_id() == owner_process;
}

std::error_code ipc_instance::check_caller(std::uint32_t flags) const {
    if (ended || gds_helper::process_id() != owner_process) return status::connection_closed;
    // This thread delivers the answers: waiting for one here would be for ever.
    if ((flags & rpc_flag_no_reply) == 0 && is_receiving_here()) {
        return std::make_error_code(std::errc::resource_deadlock_would_occur);
    }
    return {};
}

std::expected<std::uint64_t, std::error_code> ipc_instance::register_object(object_entry object) {
    if (ended) return std::unexpected(make_error_code(status::connection_closed));
    return callee->register_object(std::move(object));
}

std::error_code ipc_instance::close_handle(std::uint64_t handle, std::uint32_t flags) {
    // The last copy of a handle may go in a callback: tell the peer without waiting for what this thread delivers.
    if (is_receiving_here()) flags |= rpc_flag_no_reply;
    if (const std::error_code error = check_caller(flags)) return error;
    const status outcome = caller.close_handle(handle, flags);
    return outcome == status::success ? std::error_code{} : make_error_code(outcome);
}

std::error_code ipc_instance::call(std::uint64_t handle, std::string_view function_name,
                                   std::span<const std::byte> parameters, std::vector<std::byte>* result,
                                   std::uint32_t flags) {
    if (const std::error_code error = check_caller(flags)) return error;
    if ((flags & rpc_flag_no_wait) != 0) {
        switch (caller.offer(handle, function_name, parameters, flags & ~rpc_flag_no_wait)) {
        case channel_interface::offered::sent:
            return {};
        case channel_interface::offered::would_wait:
            return std::make_error_code(std::errc::operation_would_block);
        case channel_interface::offered::closed:
            return make_error_code(status::connection_closed);
        }
    }
    const status outcome = caller.call(handle, function_name, parameters, result, flags);
    return outcome == status::success ? std::error_code{} : make_error_code(outcome);
}

void ipc_instance::receive_loop() {
    bool first = true;
    for (;;) {
        const auto received = receive_queue->receive();
        if (std::holds_alternative<std::monostate>(received)) return;
        if (const auto* block = std::get_if<std::span<std::byte>>(&received)) {
            if (std::exchange(first, false) && on_first_packet) on_first_packet();
            const bool good = receive_span(*block);
            receive_queue->release_block(*block);
            if (!good && !drops_bad_packets) return;
            continue;
        }
        const auto& words = std::get<notification_words>(received);
        for (std::size_t word = 0; word < words.size() && on_notification; ++word) {
            for (std::uint64_t rest = words[word]; rest != 0; rest &= rest - 1) {
                on_notification(64 * word + static_cast<std::uint64_t>(std::countr_zero(rest)));
            }
        }
    }
}

bool ipc_instance::receive_span(std::span<const std::byte> block) {
    const auto header = read_packet<rpc_packet_header>(block);
    if (!header) {
        ipc_logger().error("{} failed with: Packet too small ({} bytes)", receive_name, block.size());
        return false;
    }
    if (header->packet_size > block.size()) {
        ipc_logger().error("{} failed with: rpc_packet_header::packet_size too large ({} bytes)", receive_name,
                           header->packet_size);
        return false;
    }
    if (header->packet_size < sizeof(rpc_packet_header)) {
        ipc_logger().error("{} failed with: Packet too small ({} bytes)", receive_name, header->packet_size);
        return false;
    }
    log_packet(receive_name, false, *header);
    const auto packet = block.first(header->packet_size);
    switch (header->type()) {
    case rpc_packet_type::service_announce:
    case rpc_packet_type::client_announce:
        ipc_logger().error("Announce packets should be sent via tcp channel. Id: {}, seq_id={}, pckt-size={}",
                           static_cast<unsigned>(header->type()), header->seq_id, header->packet_size);
        return false;
    case rpc_packet_type::call_close:
    case rpc_packet_type::call_start:
    case rpc_packet_type::call_step:
        callee->receive_rpc_packet(packet);
        return true;
    case rpc_packet_type::ret_start:
    case rpc_packet_type::ret_step:
    case rpc_packet_type::ret_err:
        caller.receive_packet(packet);
        return true;
    default:
        ipc_logger().error("Unknown rpc_packet_type received. Id: {}, seq_id={}, pckt-size={}",
                           static_cast<unsigned>(header->type()), header->seq_id, header->packet_size);
        return false;
    }
}

} // namespace ipc_rpc
