#include "impl/rpc_caller.h"

#include <spdlog/logger.h>

#include <algorithm>
#include <new>
#include <utility>

namespace ipc_rpc {

void rpc_caller_instance::transaction::finish(status with) {
    const std::lock_guard guard{mutex};
    if (done) return;
    outcome = with;
    done = true;
    // Under the lock: the waiter may be gone as soon as it sees `done`; the shared owner keeps the condition alive.
    finished.notify_all();
}

status rpc_caller_instance::transaction::wait() {
    std::unique_lock held{mutex};
    finished.wait(held, [this] { return done; });
    return outcome;
}

std::uint64_t rpc_caller_instance::next_seq_id() noexcept {
    const std::uint64_t id = ++sequence;
    return id != 0 ? id : ++sequence; // 0 belongs to the announcements
}

rpc_caller_instance::transaction_ptr rpc_caller_instance::begin(std::uint64_t seq_id, std::vector<std::byte>* result) {
    auto created = std::make_shared<transaction>();
    created->seq_id = seq_id;
    created->result = result;
    const std::lock_guard guard{mutex};
    if (closed) return nullptr;
    transactions.push_back(created);
    return created;
}

void rpc_caller_instance::remove(std::uint64_t seq_id) {
    const std::lock_guard guard{mutex};
    std::erase_if(transactions, [&](const transaction_ptr& entry) { return entry->seq_id == seq_id; });
}

template <class Send>
status rpc_caller_instance::run(std::uint32_t flags, std::vector<std::byte>* result, Send&& send) {
    const std::uint64_t seq_id = next_seq_id();
    if ((flags & rpc_flag_no_reply) != 0) return send(seq_id) ? status::success : status::connection_closed;
    const transaction_ptr pending = begin(seq_id, result);
    if (!pending) return status::connection_closed;
    if (!send(seq_id)) {
        remove(seq_id);
        pending->finish(status::connection_closed);
    }
    return pending->wait();
}

status rpc_caller_instance::call(std::uint64_t handle, std::string_view function, std::span<const std::byte> parameters,
                                 std::vector<std::byte>* result, std::uint32_t flags) {
    if (parameters.size() > max_param_block) return status::param_block_too_large;
    return run(flags, result,
               [&](std::uint64_t seq_id) { return send_call(channel, seq_id, flags, handle, function, parameters); });
}

channel_interface::offered rpc_caller_instance::offer(std::uint64_t handle, std::string_view function,
                                                      std::span<const std::byte> parameters, std::uint32_t flags) {
    return offer_call(channel, next_seq_id(), flags, handle, function, parameters);
}

status rpc_caller_instance::close_handle(std::uint64_t handle, std::uint32_t flags) {
    return run(flags, nullptr, [&](std::uint64_t seq_id) { return send_close(channel, seq_id, flags, handle); });
}

void rpc_caller_instance::receive_packet(std::span<const std::byte> packet) {
    const auto header = read_packet<rpc_packet_header>(packet);
    if (!header) return;
    const auto number = static_cast<unsigned>(header->type());
    if (number < static_cast<unsigned>(rpc_packet_type::ret_start)) {
        ipc_logger().warn("Packet with invalid rpc_packet_type == {} received.", number);
        return;
    }
    if (number > static_cast<unsigned>(rpc_packet_type::ret_err)) {
        ipc_logger().warn("Packet with unknown rpc_packet_type == {} received.", number);
        return;
    }
    if (packet.size() < sizeof(ret_start_packet)) {
        ipc_logger().error("Packet too small: {}", packet.size());
        return;
    }
    const std::lock_guard guard{mutex};
    const auto found =
        std::ranges::find(transactions, header->seq_id, [](const transaction_ptr& entry) { return entry->seq_id; });
    if (found == transactions.end()) {
        const char* name = header->type() == rpc_packet_type::ret_start  ? "ret"
                           : header->type() == rpc_packet_type::ret_step ? "ret_step"
                                                                         : "ret_err";
        ipc_logger().warn("Failed to find transaction for '{}' packet with seq-id={}", name, header->seq_id);
        return;
    }
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): finish() takes the one in the list away
    const transaction_ptr pending = *found;
    const auto finish = [&](status with) {
        transactions.erase(std::ranges::find(transactions, pending));
        if (pending->result != nullptr) *pending->result = std::move(pending->incoming.bytes);
        pending->finish(with);
    };
    static_assert(sizeof(ret_start_packet) == sizeof(step_packet) &&
                  sizeof(ret_start_packet) == sizeof(ret_err_packet));
    const auto chunk = packet.subspan(sizeof(ret_start_packet));
    switch (header->type()) {
    case rpc_packet_type::ret_err:
        try {
            pending->incoming.bytes.assign(chunk.begin(), chunk.end());
        } catch (const std::bad_alloc&) {
            return finish(status::resource_exhausted);
        }
        finish(static_cast<status>(read_packet<ret_err_packet>(packet)->status));
        return;
    case rpc_packet_type::ret_start: {
        const std::uint64_t size = read_packet<ret_start_packet>(packet)->result_size;
        if (size > max_param_block) return finish(status::param_block_too_large);
        try {
            pending->incoming.bytes.resize(size);
        } catch (const std::bad_alloc&) {
            return finish(status::resource_exhausted);
        }
        pending->incoming.received = 0;
        static_cast<void>(pending->incoming.put(0, chunk.first(std::min<std::size_t>(chunk.size(), size))));
        break;
    }
    default:
        if (!pending->incoming.put(read_packet<step_packet>(packet)->offset, chunk)) return finish(status::bad_packet);
    }
    if (pending->incoming.complete()) finish(status::success);
}

void rpc_caller_instance::close() {
    std::vector<transaction_ptr> ended;
    {
        const std::lock_guard guard{mutex};
        closed = true;
        ended.swap(transactions);
    }
    for (const transaction_ptr& pending : ended) pending->finish(status::connection_closed);
}

} // namespace ipc_rpc
