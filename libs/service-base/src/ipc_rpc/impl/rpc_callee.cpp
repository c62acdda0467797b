#include "impl/rpc_callee.h"

#include "impl/ipc_call_base.h"

#include <algorithm>
#include <deque>
#include <new>

namespace ipc_rpc {

namespace {

constexpr std::size_t max_incoming = 128;
constexpr std::size_t evicted_at_once = 64;
// All parameter blocks that are still arriving, together: one peer can't take more of this process's memory.
constexpr std::uint64_t max_incoming_bytes = 4 * max_param_block;

} // namespace

struct rpc_callee_instance::incoming_transaction {
    std::uint64_t seq_id;
    call_target target;
    std::uint32_t flags;
    std::vector<std::byte> parameters;
    std::uint64_t received;
};

// Handles are never used twice within a connection.
struct rpc_callee_instance::objects {
    std::mutex table_mutex; // guards what follows
    std::unordered_map<std::uint64_t, object_entry> entries;
    std::uint64_t last_handle = 0;
    bool stopped = false;

    // The entry leaves the lock before its object is destroyed: that may take time, or call back.
    bool remove(std::uint64_t handle) {
        std::unordered_map<std::uint64_t, object_entry>::node_type removed;
        const std::lock_guard lock{table_mutex};
        removed = entries.extract(handle);
        return !removed.empty();
    }
};

// Tasks in the order of their arrival. Shared with the executor's jobs, which may outlive the connection.
class task_list_container final {
public:
    using task = std::function<void(const std::shared_ptr<rpc_connection_client>&)>;

    std::weak_ptr<rpc_connection_client> connection; // set before the first task

    bool push(task added) {
        const std::lock_guard lock{list_mutex};
        if (stopped) return false;
        list.push_back(std::move(added));
        return true;
    }
    void run_front() {
        task next;
        {
            const std::lock_guard lock{list_mutex};
            if (list.empty()) return;
            next = std::move(list.front());
            list.pop_front();
        }
        // Nobody is left to answer when the connection is gone.
        if (const auto live = connection.lock()) next(live);
    }
    void stop() {
        std::deque<task> dropped;
        const std::lock_guard lock{list_mutex};
        stopped = true;
        dropped.swap(list);
    }

private:
    std::mutex list_mutex; // guards what follows
    std::deque<task> list;
    bool stopped = false;
};

rpc_callee_instance::rpc_callee_instance(std::shared_ptr<channel_interface> to,
                                         std::shared_ptr<const object_function_table_root> table,
                                         std::shared_ptr<executor_thread_pool_interface> run_on)
    : channel(std::move(to)), functions(std::move(table)), tasks(std::make_shared<task_list_container>()),
      object_table(std::make_shared<objects>()), executor(std::move(run_on)) {}

rpc_callee_instance::~rpc_callee_instance() = default;

void rpc_callee_instance::bind(std::weak_ptr<rpc_connection_client> connection) {
    tasks->connection = std::move(connection);
}

std::expected<std::uint64_t, std::error_code> rpc_callee_instance::register_object(object_entry object) {
    if (!object.owned && object.observed.expired()) return std::unexpected(make_error_code(status::null_registration));
    const std::lock_guard lock{object_table->table_mutex};
    if (object_table->stopped) return std::unexpected(make_error_code(status::connection_closed));
    std::uint64_t& handle = object_table->last_handle;
    if (++handle == 0) ++handle; // 0 always means the global functions
    object_table->entries.emplace(handle, std::move(object));
    return handle;
}

void rpc_callee_instance::receive_rpc_packet(std::span<const std::byte> packet) {
    const auto header = read_head<rpc_packet_header>(packet);
    if (!header) return;
    switch (header->type()) {
    case rpc_packet_type::call_close:
        return receive_close_handle(*header, packet);
    case rpc_packet_type::call_start:
        return receive_call_start(*header, packet);
    case rpc_packet_type::call_step:
        return receive_call_step(*header, packet);
    default:
        ipc_logger().error("Unknown rpc_packet_type received. Id: {}, seq_id={}, pckt-size={}",
                           static_cast<int>(header->type()), header->seq_id, header->packet_size);
    }
}

void rpc_callee_instance::reply_error(const rpc_packet_header& header, status why) {
    // A task like any other: only an executor thread may wait for a free block.
    if ((header.flags() & rpc_flag_no_reply) != 0) return;
    push_task([to = channel, seq_id = header.seq_id, why](const auto&) {
        static_cast<void>(send_ret_err_packet(*to, seq_id, why));
    });
}

std::expected<rpc_callee_instance::call_target, status> rpc_callee_instance::find_target(std::uint64_t handle,
                                                                                         std::string_view name) {
    call_target target;
    if (handle == 0) {
        target.function = functions->find_global(name);
        if (target.function != nullptr) return target;
        ipc_logger().warn("Failed to find global function '{}'.", name);
        return std::unexpected(status::function_not_found);
    }
    const std::lock_guard lock{object_table->table_mutex};
    const auto found = object_table->entries.find(handle);
    if (found == object_table->entries.end()) {
        ipc_logger().warn("Failed to find object instance (id={})", handle);
        return std::unexpected(status::object_not_found);
    }
    target.function = functions->find_method(found->second.class_name, name);
    if (target.function == nullptr) {
        ipc_logger().warn("Failed to find method (name='{}') on object (id={}).", name, handle);
        return std::unexpected(status::function_not_found);
    }
    target.object = found->second.owned ? found->second.owned : found->second.observed.lock();
    if (!target.object) {
        ipc_logger().warn("Object instance for id={} expired", handle);
        return std::unexpected(status::object_expired);
    }
    return target;
}

void rpc_callee_instance::receive_call_start(const rpc_packet_header& header, std::span<const std::byte> packet) {
    const auto head = read_head<call_start_packet>(packet);
    if (!head) {
        ipc_logger().error("Failed to find call header in packet with seq_id={}.", header.seq_id);
        return reply_error(header, status::bad_packet);
    }
    const char* name_end = std::find(head->function_name, head->function_name + function_name_size, '\0');
    auto target = find_target(head->object_handle, {head->function_name, name_end});
    if (!target) return reply_error(header, target.error());
    if (head->param_size > max_param_block) return reply_error(header, status::param_block_too_large);

    auto chunk = packet.subspan(sizeof *head);
    if (head->param_size <= chunk.size()) {
        chunk = chunk.first(head->param_size);
        return execute_function_and_sent_response(header.seq_id, *std::move(target), {chunk.begin(), chunk.end()},
                                                  header.flags());
    }
    if (incoming_bytes + head->param_size > max_incoming_bytes) return reply_error(header, status::resource_exhausted);
    std::vector<std::byte> parameters;
    parameters.reserve(head->param_size);
    parameters.assign(chunk.begin(), chunk.end());
    parameters.resize(head->param_size);
    add_transaction({header.seq_id, *std::move(target), header.flags(), std::move(parameters), chunk.size()});
}

void rpc_callee_instance::add_transaction(incoming_transaction transaction) {
    if (incoming.size() > max_incoming) {
        ipc_logger().error("Call transaction list size == {}, erasing oldest 64 elements.", incoming.size());
        const auto last = incoming.begin() + evicted_at_once;
        for (auto old = incoming.begin(); old != last; ++old) incoming_bytes -= old->parameters.size();
        incoming.erase(incoming.begin(), last);
    }
    incoming_bytes += transaction.parameters.size();
    incoming.push_back(std::move(transaction));
}

void rpc_callee_instance::receive_call_step(const rpc_packet_header& header, std::span<const std::byte> packet) {
    const auto head = read_head<step_packet>(packet);
    if (!head) {
        ipc_logger().error("Failed to fetch call header from receive_call_step packet.");
        return reply_error(header, status::bad_packet);
    }
    const auto found = std::ranges::find(incoming, header.seq_id, &incoming_transaction::seq_id);
    if (found == incoming.end()) {
        ipc_logger().error("Failed to find transaction based on the sequence-id {}.", header.seq_id);
        return reply_error(header, status::unknown_transaction);
    }
    const auto chunk = packet.subspan(sizeof *head);
    auto& parameters = found->parameters;
    const bool fits = head->offset <= parameters.size() && chunk.size() <= parameters.size() - head->offset;
    if (fits) {
        std::ranges::copy(chunk, parameters.begin() + static_cast<std::ptrdiff_t>(head->offset));
        found->received += chunk.size();
        if (found->received < parameters.size()) return;
    }
    incoming_transaction complete = std::move(*found);
    incoming.erase(found);
    incoming_bytes -= complete.parameters.size();
    if (!fits) return reply_error(header, status::bad_packet);
    execute_function_and_sent_response(complete.seq_id, std::move(complete.target), std::move(complete.parameters),
                                       complete.flags);
}

void rpc_callee_instance::execute_function_and_sent_response(std::uint64_t seq_id, call_target target,
                                                             std::vector<std::byte> parameters, std::uint32_t flags) {
    push_task([to = channel, table = functions, seq_id, flags, target = std::move(target),
               parameters = std::move(parameters)](const std::shared_ptr<rpc_connection_client>& connection) {
        rpc_call_context context{param_reader{parameters, connection}, {}, connection, target.object};
        status outcome = status::success;
        try {
            outcome = (*target.function)(context);
        } catch (status thrown) {
            outcome = thrown;
        } catch (const std::exception& failure) {
            // Ours to find; the peer must have an answer all the same.
            ipc_logger().critical("Function for call with seq_id={} failed: {}", seq_id, failure.what());
            outcome = status::resource_exhausted;
        }
        if ((flags & rpc_flag_no_reply) != 0) return;
        if (outcome == status::success && context.result.size() > max_param_block) {
            outcome = status::param_block_too_large;
            context.result.clear();
        }
        static_cast<void>(outcome == status::success ? send_result(*to, seq_id, context.result)
                                                     : send_ret_err_packet(*to, seq_id, outcome, context.result));
    });
}

void rpc_callee_instance::push_task(std::function<void(const std::shared_ptr<rpc_connection_client>&)> task) {
    if (tasks->push(std::move(task))) executor->push([list = tasks] { list->run_front(); });
}

void rpc_callee_instance::receive_close_handle(const rpc_packet_header& header, std::span<const std::byte> packet) {
    const auto head = read_head<call_close_packet>(packet);
    if (!head) {
        ipc_logger().error("Failed to fetch call header from close_handle packet.");
        return reply_error(header, status::bad_packet);
    }
    push_task([to = channel, table = object_table, header, handle = head->object_handle](const auto&) {
        const bool reply = (header.flags() & rpc_flag_no_reply) == 0;
        if (table->remove(handle)) {
            if (reply) static_cast<void>(send_result(*to, header.seq_id, {}));
            return;
        }
        ipc_logger().warn("Close-handle: Object not found for handle : {}", handle);
        if (reply) static_cast<void>(send_ret_err_packet(*to, header.seq_id, status::object_not_found));
    });
}

void rpc_callee_instance::stop() {
    tasks->stop();
    executor.reset();
    std::unordered_map<std::uint64_t, object_entry> dropped;
    const std::lock_guard lock{object_table->table_mutex};
    object_table->stopped = true;
    dropped.swap(object_table->entries);
}

} // namespace ipc_rpc
