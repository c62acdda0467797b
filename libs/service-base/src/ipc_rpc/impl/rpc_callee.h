// The half of a connection that is called: function tables, objects, and the tasks that run them.
#pragma once

#include "impl/ipc_call_base.h"

#include <ipc_rpc/byte_budget.h>
#include <ipc_rpc/executor_thread_pool.h>
#include <ipc_rpc/function_table.h>

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>

namespace ipc_rpc {

// Thread-safe; receive_rpc_packet belongs to the receive thread, which never runs a function: all run on the executor,
// started in the order of their arrival. No function and no destructor of an object runs with a lock held.
class rpc_callee_instance final : public std::enable_shared_from_this<rpc_callee_instance> {
public:
    rpc_callee_instance(channel_interface& send_channel, object_function_table_root functions,
                        std::shared_ptr<executor_thread_pool_interface> pool,
                        std::shared_ptr<byte_budget> call_bytes = nullptr);

    // What functions see as the connection they were called over.
    void set_connection(std::weak_ptr<rpc_connection_client> self) { connection = std::move(self); }

    void receive_rpc_packet(std::span<const std::byte> packet);
    [[nodiscard]] std::expected<std::uint64_t, std::error_code> register_object(object_entry object);
    // Drops what is queued and lets go of all objects, telling those that want to know it; what runs may still reply.
    // No object is taken any more.
    void release();
    // And waits for what runs. No packet comes after it.
    void stop();

private:
    using task = std::function<void(const std::shared_ptr<rpc_connection_client>&)>;
    struct target {
        const rpc_function* function = nullptr;
        std::shared_ptr<void> object;
        status failure = status::success;
    };
    struct incoming_call {
        std::uint64_t seq_id;
        std::uint32_t flags;
        target callee;
        assembly parameters;
        std::shared_ptr<reserved_bytes> reserved;
    };

    void receive_call_start(std::span<const std::byte> packet, const rpc_packet_header& header);
    void receive_call_step(std::span<const std::byte> packet, const rpc_packet_header& header);
    void receive_close_handle(std::span<const std::byte> packet, const rpc_packet_header& header);
    [[nodiscard]] target find_target(std::uint64_t handle, std::string_view name);
    void add_transaction(incoming_call call);
    incoming_call take_transaction(std::list<incoming_call>::iterator at);
    void execute_function_and_sent_response(incoming_call call);
    // False when `most` are waiting.
    [[nodiscard]] bool push_task(task work, std::size_t most);
    void run_one_task();

    channel_interface& channel;
    const object_function_table_root table;
    std::weak_ptr<rpc_connection_client> connection;
    const std::shared_ptr<byte_budget> bytes; // of parameters that are arriving, waiting or worked on
    std::list<incoming_call> transactions;    // the receive thread's

    std::mutex objects_mutex; // guards what follows
    std::map<std::uint64_t, object_entry> objects;
    std::uint64_t last_handle = 0;
    bool released = false;

    std::mutex tasks_mutex;                                   // guards what follows
    std::list<task> tasks;                                    // a list: an empty one costs no memory, at the end of all
    std::shared_ptr<executor_thread_pool_interface> executor; // null once stopped
};

} // namespace ipc_rpc
