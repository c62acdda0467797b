#include "impl/rpc_callee.h"

#include <gds_helper/line_budget.h>
#include <gds_helper/printable.h>
#include <ipc_rpc/limits.h>

#include <spdlog/logger.h>

#include <algorithm>
#include <iterator>
#include <mutex>
#include <new>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace ipc_rpc {

namespace {

[[nodiscard]] bool wants_reply(std::uint32_t flags) noexcept { return (flags & rpc_flag_no_reply) == 0; }

// Side by side: the end of one may wait for somebody who is gone, and others want what the next ones hold.
template <class Container>
void end_all(Container& objects) {
    constexpr std::size_t most_at_once = 16;
    std::mutex mutex; // guards next
    auto next = objects.begin();
    const auto work = [&] {
        for (;;) {
            std::optional<typename Container::value_type> mine; // ends without the lock
            const std::lock_guard guard{mutex};
            if (next == objects.end()) return;
            mine.emplace(std::move(*next++));
        }
    };
    std::vector<std::jthread> helpers;
    try {
        while (helpers.size() + 1 < std::min(objects.size(), most_at_once))
            helpers.emplace_back([&work, lines = gds_helper::log::counted_lines::current()] {
                const gds_helper::log::counted_lines counted{lines};
                work();
            });
    } catch (const std::exception&) { // no memory or no thread for another one
    }
    work();
}

} // namespace

rpc_callee_instance::rpc_callee_instance(channel_interface& send_channel, object_function_table_root functions,
                                         std::shared_ptr<executor_thread_pool_interface> pool,
                                         std::shared_ptr<byte_budget> call_bytes)
    : channel(send_channel),
      table(std::move(functions)),
      bytes(call_bytes ? std::move(call_bytes) : std::make_shared<byte_budget>(limits::most_call_bytes)),
      executor(std::move(pool)) {}

std::expected<std::uint64_t, std::error_code> rpc_callee_instance::register_object(object_entry object) {
    if (!object.owned && object.observed.expired()) {
        return std::unexpected(make_error_code(status::null_registration));
    }
    const std::lock_guard guard{objects_mutex};
    if (released) return std::unexpected(make_error_code(status::connection_closed));
    if (objects.size() >= limits::most_objects) return std::unexpected(make_error_code(status::resource_exhausted));
    if (++last_handle == 0) ++last_handle; // 0 means "global"
    objects.emplace(last_handle, std::move(object));
    return last_handle;
}

void rpc_callee_instance::receive_rpc_packet(std::span<const std::byte> packet) {
    const auto header = read_packet<rpc_packet_header>(packet);
    if (!header) return;
    switch (header->type()) {
    case rpc_packet_type::call_close:
        return receive_close_handle(packet, *header);
    case rpc_packet_type::call_start:
        return receive_call_start(packet, *header);
    case rpc_packet_type::call_step:
        return receive_call_step(packet, *header);
    default:
        ipc_logger().error("Unknown rpc_packet_type received. Id: {}, seq_id={}, pckt-size={}",
                           static_cast<unsigned>(header->type()), header->seq_id, header->packet_size);
    }
}

rpc_callee_instance::target rpc_callee_instance::find_target(std::uint64_t handle, std::string_view name) {
    if (handle == 0) {
        const rpc_function* function = table.find_global(name);
        if (function == nullptr) {
            ipc_logger().warn("Failed to find global function '{}'.", gds_helper::printable(name));
            return {nullptr, nullptr, status::function_not_found};
        }
        return {function, nullptr, status::success};
    }
    const std::lock_guard guard{objects_mutex};
    const auto found = objects.find(handle);
    if (found == objects.end()) {
        ipc_logger().warn("Failed to find object instance (id={})", handle);
        return {nullptr, nullptr, status::object_not_found};
    }
    const rpc_function* function = table.find_method(found->second.class_name, name);
    if (function == nullptr) {
        ipc_logger().warn("Failed to find method (name='{}') on object (id={}).", gds_helper::printable(name), handle);
        return {nullptr, nullptr, status::function_not_found};
    }
    auto object = found->second.owned ? found->second.owned : found->second.observed.lock();
    if (!object) {
        ipc_logger().warn("Object instance for id={} expired", handle);
        return {nullptr, nullptr, status::object_expired};
    }
    return {function, std::move(object), status::success};
}

void rpc_callee_instance::receive_call_start(std::span<const std::byte> packet, const rpc_packet_header& header) {
    const auto start = read_packet<call_start_packet>(packet);
    if (!start) {
        ipc_logger().error("Failed to find call header in packet with seq_id={}.", header.seq_id);
        send_ret_err_packet(channel, header.seq_id, status::bad_packet);
        return;
    }
    const std::uint32_t flags = header.flags();
    const auto refuse = [&](status why) {
        if (wants_reply(flags)) send_ret_err_packet(channel, header.seq_id, why);
    };
    const auto name_end = std::find(std::begin(start->function_name), std::end(start->function_name), '\0');
    const std::string_view name{start->function_name, name_end};
    target callee = find_target(start->object_handle, name);
    if (callee.failure != status::success) return refuse(callee.failure);
    if (start->param_size > max_param_block) return refuse(status::param_block_too_large);
    const auto chunk = packet.subspan(sizeof(call_start_packet));
    const bool whole = start->param_size <= chunk.size();
    try {
        incoming_call call{header.seq_id, flags, std::move(callee), {}, {}};
        call.reserved = reserved_bytes::take(bytes, whole ? chunk.size() : start->param_size);
        if (!call.reserved) return refuse(status::resource_exhausted);
        if (whole) {
            call.parameters.bytes.assign(chunk.begin(), chunk.end());
            return execute_function_and_sent_response(std::move(call));
        }
        call.parameters.bytes.resize(start->param_size);
        static_cast<void>(call.parameters.put(0, chunk));
        add_transaction(std::move(call));
    } catch (const std::bad_alloc&) {
        refuse(status::resource_exhausted);
    }
}

void rpc_callee_instance::add_transaction(incoming_call call) {
    if (transactions.size() > limits::most_arriving_calls) {
        ipc_logger().error("Call transaction list size == {}, erasing oldest 64 elements.", transactions.size());
        for (std::size_t i = 0; i < limits::arriving_calls_dropped; ++i) take_transaction(transactions.begin());
    }
    transactions.push_back(std::move(call));
}

rpc_callee_instance::incoming_call rpc_callee_instance::take_transaction(std::list<incoming_call>::iterator at) {
    incoming_call taken = std::move(*at);
    transactions.erase(at);
    return taken;
}

void rpc_callee_instance::receive_call_step(std::span<const std::byte> packet, const rpc_packet_header& header) {
    const auto step = read_packet<step_packet>(packet);
    if (!step) {
        ipc_logger().error("Failed to fetch call header from receive_call_step packet.");
        send_ret_err_packet(channel, header.seq_id, status::bad_packet);
        return;
    }
    const auto found = std::ranges::find(transactions, header.seq_id, &incoming_call::seq_id);
    if (found == transactions.end()) {
        ipc_logger().error("Failed to find transaction based on the sequence-id {}.", header.seq_id);
        send_ret_err_packet(channel, header.seq_id, status::unknown_transaction);
        return;
    }
    if (!found->parameters.put(step->offset, packet.subspan(sizeof(step_packet)))) {
        const bool reply = wants_reply(take_transaction(found).flags);
        if (reply) send_ret_err_packet(channel, header.seq_id, status::bad_packet);
        return;
    }
    if (!found->parameters.complete()) return;
    execute_function_and_sent_response(take_transaction(found));
}

void rpc_callee_instance::execute_function_and_sent_response(incoming_call call) {
    const std::uint64_t seq_id = call.seq_id;
    const std::uint32_t flags = call.flags;
    const bool taken = push_task(
        [this, seq_id, flags, callee = std::move(call.callee), parameters = std::move(call.parameters.bytes),
         reserved = std::move(call.reserved)](const std::shared_ptr<rpc_connection_client>& self) mutable {
            rpc_call_context context{param_reader{parameters, self}, {}, self, callee.object};
            status outcome = status::success;
            try {
                outcome = (*callee.function)(context);
            } catch (status thrown) {
                outcome = thrown;
            } catch (const std::exception& failure) {
                // No memory for what the peer asked for, mostly. It gets an answer; this process goes on.
                ipc_logger().critical("The function called with seq_id={} failed: {}", seq_id, failure.what());
                outcome = status::resource_exhausted;
                context.result.clear();
            }
            if (outcome == status::success && context.result.size() > max_param_block) {
                outcome = status::param_block_too_large;
                context.result.clear();
            }
            if (!wants_reply(flags)) return;
            // Whoever has the answer may close the handle, and the object is to be gone when that is answered.
            context.object.reset();
            callee.object.reset();
            if (outcome == status::success) {
                send_result(channel, seq_id, context.result);
            } else {
                send_ret_err_packet(channel, seq_id, outcome, context.result);
            }
        },
        limits::most_waiting_calls);
    if (!taken && wants_reply(flags)) send_ret_err_packet(channel, seq_id, status::resource_exhausted);
}

void rpc_callee_instance::receive_close_handle(std::span<const std::byte> packet, const rpc_packet_header& header) {
    const auto close = read_packet<call_close_packet>(packet);
    if (!close) {
        ipc_logger().error("Failed to fetch call header from close_handle packet.");
        send_ret_err_packet(channel, header.seq_id, status::bad_packet);
        return;
    }
    {
        // It runs behind calls that have come before, which may be waiting for what this object is.
        const std::lock_guard guard{objects_mutex};
        if (const auto at = objects.find(close->object_handle); at != objects.end() && at->second.on_end)
            at->second.on_end();
    }
    const bool taken = push_task(
        [this, seq_id = header.seq_id, flags = header.flags(),
         handle = close->object_handle](const std::shared_ptr<rpc_connection_client>&) {
            object_entry removed; // destroyed outside the lock, before the answer
            bool found = false;
            {
                const std::lock_guard guard{objects_mutex};
                if (const auto at = objects.find(handle); at != objects.end()) {
                    removed = std::move(at->second);
                    objects.erase(at);
                    found = true;
                }
            }
            removed = {};
            if (!found) ipc_logger().warn("Close-handle: Object not found for handle : {}", handle);
            if (!wants_reply(flags)) return;
            if (found) {
                send_result(channel, seq_id, {});
            } else {
                send_ret_err_packet(channel, seq_id, status::object_not_found);
            }
        },
        limits::most_waiting_calls + limits::most_objects);
    if (!taken && wants_reply(header.flags())) send_ret_err_packet(channel, header.seq_id, status::resource_exhausted);
}

bool rpc_callee_instance::push_task(task work, std::size_t most) {
    std::shared_ptr<executor_thread_pool_interface> runner;
    {
        const std::lock_guard guard{tasks_mutex};
        if (!executor) return true; // the end: nobody waits for an answer
        if (tasks.size() >= most) return false;
        tasks.push_back(std::move(work));
        runner = executor;
    }
    try {
        runner->push([self = shared_from_this()] { self->run_one_task(); });
    } catch (const std::bad_alloc&) {
        // Nobody comes to run it; left there it would take the next one's turn. Packets come on one thread and tasks go
        // from the front, so it is still the last.
        std::list<task> dropped; // destroyed outside the lock
        const std::lock_guard guard{tasks_mutex};
        if (!tasks.empty()) dropped.splice(dropped.end(), tasks, std::prev(tasks.end()));
        return false;
    }
    return true;
}

void rpc_callee_instance::run_one_task() {
    task work;
    {
        const std::lock_guard guard{tasks_mutex};
        if (tasks.empty()) return;
        work = std::move(tasks.front());
        tasks.pop_front();
    }
    if (const auto self = connection.lock()) work(self);
}

void rpc_callee_instance::release() {
    std::list<task> dropped;
    std::map<std::uint64_t, object_entry> gone;
    {
        const std::lock_guard guard{tasks_mutex};
        dropped.swap(tasks);
    }
    {
        const std::lock_guard guard{objects_mutex};
        released = true;
        gone.swap(objects);
    }
    for (const auto& [handle, entry] : gone) {
        if (entry.on_end) entry.on_end();
    }
    end_all(gone);
}

void rpc_callee_instance::stop() {
    std::shared_ptr<executor_thread_pool_interface> ended; // perhaps its last owner: joins, so without a lock
    {
        const std::lock_guard guard{tasks_mutex};
        ended.swap(executor);
    }
    release();
    end_all(transactions); // what still arrives for an object holds it
    transactions.clear();
    ended.reset();
}

} // namespace ipc_rpc
