#include "impl/rpc_caller.h"

#include "impl/ipc_call_base.h"

#include <algorithm>
#include <condition_variable>

namespace ipc_rpc {

// Shared by the waiting caller and whoever finishes it, so a wake-up may outlive the waiter. The result vector is the
// waiter's and is written only before `done`, with the list lock held.
struct transaction {
    const std::uint64_t seq_id;
    std::vector<std::byte>& result;
    std::uint64_t received = 0;

    std::mutex state_mutex; // guards what follows
    std::condition_variable finished;
    bool done = false;
    status outcome = status::success;

    transaction(std::uint64_t id, std::vector<std::byte>& to) : seq_id(id), result(to) {}

    void finish(status with) {
        {
            const std::lock_guard lock{state_mutex};
            if (done) return;
            outcome = with;
            done = true;
        }
        finished.notify_all();
    }

    status wait() {
        std::unique_lock lock{state_mutex};
        finished.wait(lock, [&] { return done; });
        return outcome;
    }
};

std::uint64_t rpc_caller_instance::next_seq_id() noexcept {
    const std::uint64_t id = ++sequence;
    return id != 0 ? id : ++sequence;
}

template <class Send>
status rpc_caller_instance::run(std::vector<std::byte>* result, std::uint32_t flags, Send send) {
    const std::uint64_t seq_id = next_seq_id();
    if ((flags & rpc_flag_no_reply) != 0) return send(seq_id) ? status::success : status::connection_closed;

    std::vector<std::byte> unused;
    const auto waiting = std::make_shared<transaction>(seq_id, result == nullptr ? unused : *result);
    {
        const std::lock_guard lock{list_mutex};
        if (closed) return status::connection_closed;
        transactions.push_back(waiting);
    }
    if (!send(seq_id)) {
        remove(waiting);
        waiting->finish(status::connection_closed);
    }
    return waiting->wait();
}

status rpc_caller_instance::call(std::uint64_t handle, std::string_view function_name,
                                 std::span<const std::byte> parameters, std::vector<std::byte>* result,
                                 std::uint32_t flags) {
    if (parameters.size() > max_param_block) return status::param_block_too_large;
    return run(result, flags, [&](std::uint64_t seq_id) {
        return send_call(channel, seq_id, handle, function_name, parameters, flags);
    });
}

status rpc_caller_instance::close_handle(std::uint64_t handle, std::uint32_t flags) {
    return run(nullptr, flags, [&](std::uint64_t seq_id) { return send_close(channel, seq_id, handle, flags); });
}

void rpc_caller_instance::remove(const std::shared_ptr<transaction>& which) {
    const std::lock_guard lock{list_mutex};
    std::erase(transactions, which);
}

void rpc_caller_instance::receive_packet(std::span<const std::byte> packet) {
    const auto header = read_head<rpc_packet_header>(packet);
    const auto type = header ? header->type() : rpc_packet_type::invalid;
    if (type < rpc_packet_type::ret_start) {
        ipc_logger().warn("Packet with invalid rpc_packet_type == {} received.", static_cast<int>(type));
        return;
    }
    if (type > rpc_packet_type::ret_err) {
        ipc_logger().warn("Packet with unknown rpc_packet_type == {} received.", static_cast<int>(type));
        return;
    }
    static_assert(sizeof(ret_start_packet) == sizeof(step_packet) && sizeof(step_packet) == sizeof(ret_err_packet));
    constexpr std::size_t head_size = sizeof(step_packet);
    if (packet.size() < head_size) {
        ipc_logger().error("Packet too small: {}", packet.size());
        return;
    }
    const auto chunk = packet.subspan(head_size);

    const std::lock_guard lock{list_mutex};
    const auto found = std::ranges::find(transactions, header->seq_id, &transaction::seq_id);
    if (found == transactions.end()) {
        constexpr std::string_view names[]{"'ret'", "'ret_step'", "'ret_err'"};
        ipc_logger().warn("Failed to find transaction for {} packet with seq-id={}",
                          names[static_cast<int>(type) - static_cast<int>(rpc_packet_type::ret_start)], header->seq_id);
        return;
    }
    const std::shared_ptr<transaction> target = *found;
    const auto finish = [&](status with) {
        transactions.erase(found);
        target->finish(with);
    };
    std::vector<std::byte>& result = target->result;

    if (type == rpc_packet_type::ret_err) {
        result.assign(chunk.begin(), chunk.end());
        return finish(static_cast<status>(read_head<ret_err_packet>(packet)->status));
    }
    if (type == rpc_packet_type::ret_start) {
        const std::uint64_t size = read_head<ret_start_packet>(packet)->result_size;
        if (size > max_param_block) return finish(status::param_block_too_large);
        const std::size_t length = std::min<std::size_t>(size, chunk.size());
        result.assign(chunk.begin(), chunk.begin() + static_cast<std::ptrdiff_t>(length));
        result.resize(size);
        target->received = length;
    } else {
        const std::uint64_t offset = read_head<step_packet>(packet)->offset;
        if (offset > result.size() || chunk.size() > result.size() - offset) return finish(status::bad_packet);
        std::ranges::copy(chunk, result.begin() + static_cast<std::ptrdiff_t>(offset));
        target->received += chunk.size();
    }
    if (target->received >= result.size()) finish(status::success);
}

void rpc_caller_instance::close() {
    std::vector<std::shared_ptr<transaction>> open;
    const std::lock_guard lock{list_mutex};
    closed = true;
    open.swap(transactions);
    for (const auto& waiting : open) waiting->finish(status::connection_closed);
}

} // namespace ipc_rpc
