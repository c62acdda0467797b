// The half of a connection that is called: looks functions up, runs them on the executor and replies.
#pragma once

#include "impl/channel_interface.h"

#include <ipc_rpc/executor.h>
#include <ipc_rpc/function_table.h>
#include <ipc_rpc/rpc_packet.h>

#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace ipc_rpc {

class task_list_container;

// One thread delivers packets; functions run on the executor, never on that thread.
class rpc_callee_instance final {
public:
    // Replies go to `channel`, which lives as long as the connection does. The context of functions gets the
    // connection given to `bind`.
    rpc_callee_instance(std::shared_ptr<channel_interface> to, std::shared_ptr<const object_function_table_root> table,
                        std::shared_ptr<executor_thread_pool_interface> run_on);
    ~rpc_callee_instance();

    // Once, before packets come.
    void bind(std::weak_ptr<rpc_connection_client> connection);
    [[nodiscard]] std::expected<std::uint64_t, std::error_code> register_object(object_entry object);

    // Types 3 to 5.
    void receive_rpc_packet(std::span<const std::byte> packet);

    // Drops what is queued, every object and the executor; functions that run finish. No packet may come any more.
    void stop();

private:
    struct incoming_transaction;
    struct call_target {
        std::shared_ptr<void> object;
        const rpc_function* function = nullptr;
    };
    struct objects;

    void receive_call_start(const rpc_packet_header& header, std::span<const std::byte> packet);
    void receive_call_step(const rpc_packet_header& header, std::span<const std::byte> packet);
    void receive_close_handle(const rpc_packet_header& header, std::span<const std::byte> packet);
    [[nodiscard]] std::expected<call_target, status> find_target(std::uint64_t handle, std::string_view name);
    void add_transaction(incoming_transaction transaction);
    void execute_function_and_sent_response(std::uint64_t seq_id, call_target target, std::vector<std::byte> parameters,
                                            std::uint32_t flags);
    void push_task(std::function<void(const std::shared_ptr<rpc_connection_client>&)> task);
    void reply_error(const rpc_packet_header& header, status why);

    const std::shared_ptr<channel_interface> channel;
    const std::shared_ptr<const object_function_table_root> functions;
    const std::shared_ptr<task_list_container> tasks;
    const std::shared_ptr<objects> object_table;

    // Of the delivering thread, and of `stop` once that thread has ended.
    std::shared_ptr<executor_thread_pool_interface> executor;  // null once stopped
    std::vector<incoming_transaction> incoming;
    std::uint64_t incoming_bytes = 0;
};

} // namespace ipc_rpc
