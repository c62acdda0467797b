// The machinery of one announced connection, the same for both ends, and the connection that is handed out for it.
#pragma once

#include "impl/recv_queue_thread.h"
#include "impl/rpc_callee.h"
#include "impl/rpc_caller.h"
#include "impl/shared_memory_queue.h"

#include <ipc_rpc/rpc_connection_client.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace ipc_rpc {

// Both queues, caller, callee and the receive thread.
class ipc_instance final {
public:
    // Threads and channel are named `thread_prefix` plus "recv" and "send".
    ipc_instance(std::shared_ptr<shared_memory_queue> send, std::shared_ptr<shared_memory_queue> receive,
                 std::shared_ptr<const object_function_table_root> table,
                 std::shared_ptr<executor_thread_pool_interface> executor, const std::string& thread_prefix);
    ~ipc_instance();
    ipc_instance(const ipc_instance&) = delete;
    ipc_instance& operator=(const ipc_instance&) = delete;

    // Once. Functions called by the peer see `connection`. Callbacks as in recv_queue_thread::targets.
    void start(std::weak_ptr<rpc_connection_client> connection, std::function<void(std::uint64_t)> on_notification,
               std::function<void()> on_bad_packet = {}, std::function<void()> on_first_packet = {});
    // Ends everything that waits and joins the receive thread, so never on that thread. By one thread; repeatable.
    void shutdown();

    [[nodiscard]] rpc_caller_instance& caller() noexcept { return calls; }
    [[nodiscard]] rpc_callee_instance& callee() noexcept { return served; }
    [[nodiscard]] bool is_open() const noexcept { return !ended; }
    // True on the thread that delivers this connection's packets.
    [[nodiscard]] bool is_receiving_here() const noexcept { return recv_queue_thread::receives(*receive_queue); }
    bool raise_notification(std::uint64_t number) { return send_queue->raise_notification(number); }

private:
    const std::shared_ptr<shared_memory_queue> send_queue;
    const std::shared_ptr<shared_memory_queue> receive_queue;
    const std::string receive_name;
    const std::shared_ptr<channel_interface> channel;
    rpc_caller_instance calls;
    rpc_callee_instance served;
    std::unique_ptr<recv_queue_thread> receiver;
    std::atomic<bool> ended{false}; // set once by shutdown, read by callers
};

// Forwards to the machinery; dead in a forked child.
class ipc_connection : public rpc_connection_client {
public:
    explicit ipc_connection(std::shared_ptr<ipc_instance> over);

    std::expected<std::uint64_t, std::error_code> register_object(object_entry object) override;
    std::error_code close_handle(std::uint64_t handle, std::uint32_t flags) override;
    std::error_code call(std::uint64_t handle, std::string_view function_name, std::span<const std::byte> parameters,
                         std::vector<std::byte>* result, std::uint32_t flags) override;
    bool is_open() const override;

protected:
    [[nodiscard]] ipc_instance& machinery() const noexcept { return *instance; }

private:
    [[nodiscard]] bool is_dead() const noexcept;

    const std::shared_ptr<ipc_instance> instance;
    const std::int64_t owner_process;
};

} // namespace ipc_rpc
