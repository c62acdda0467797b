// The half of a connection that is called: function tables, objects, and the tasks that run them.
#pragma once

#include "impl/ipc_call_base.h"

#include <ipc_rpc/executor.h>
#include <ipc_rpc/function_table.h>

#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>

namespace ipc_rpc {

// receive_rpc_packet belongs to the receive thread, which never runs a function: all run on the executor, started in
// the order of their arrival.
class rpc_callee_instance final : public std::enable_shared_from_this<rpc_callee_instance> {
public:
    rpc_callee_instance(channel_interface& send_channel, object_function_table_root functions,
                        std::shared_ptr<executor_thread_pool_interface> pool);

    // What functions see as the connection they were called over.
    void set_connection(std::weak_ptr<rpc_connection_client> self) { connection = std::move(self); }

    void receive_rpc_packet(std::span<const std::byte> packet);
    [[nodiscard]] std::expected<std::uint64_t, std::error_code> register_object(object_entry object);
    // Drops what is queued; what runs may still reply. Objects and the executor go, here and now. No packet comes
    // after it.
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
    };

    void receive_call_start(std::span<const std::byte> packet, const rpc_packet_header& header);
    void receive_call_step(std::span<const std::byte> packet, const rpc_packet_header& header);
    void receive_close_handle(std::span<const std::byte> packet, const rpc_packet_header& header);
    [[nodiscard]] target find_target(std::uint64_t handle, std::string_view name);
    void add_transaction(incoming_call call);
    incoming_call take_transaction(std::list<incoming_call>::iterator at);
    void execute_function_and_sent_response(std::uint64_t seq_id, std::uint32_t flags, target callee,
                                            std::vector<std::byte> parameters);
    void push_task(task work);
    void run_one_task();

    channel_interface& channel;
    const object_function_table_root table;
    std::weak_ptr<rpc_connection_client> connection;
    std::list<incoming_call> transactions; // the receive thread's
    std::uint64_t incoming_bytes = 0;      // of all of them

    std::mutex objects_mutex; // guards what follows
    std::map<std::uint64_t, object_entry> objects;
    std::uint64_t last_handle = 0;

    std::mutex tasks_mutex; // guards what follows
    std::deque<task> tasks;
    std::shared_ptr<executor_thread_pool_interface> executor; // null once stopped
};

} // namespace ipc_rpc
