// One client process: first somebody who has connected, then a client with its threads.
#pragma once

#include <gds_helper/line_budget.h>
#include <impl/ipc_instance.h>
#include <platform.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace service {

// Connected, told where its queues are, and not heard of yet. Thread-bound.
class unannounced final {
public:
    // Makes the queues and tells their names. Throws std::system_error.
    unannounced(std::unique_ptr<ipc_rpc::platform::named_pipe_channel> connected,
                const ipc_rpc::platform::object_access& access);

    // What there is to be read on the channel: the client's name, or nothing when it was no announcement or the end.
    [[nodiscard]] std::optional<std::string> announced_name();

    [[nodiscard]] std::chrono::steady_clock::time_point deadline() const noexcept { return until; }
    [[nodiscard]] std::intptr_t native() const noexcept { return channel->native(); }
    [[nodiscard]] const ipc_rpc::platform::peer_identity& identity() const noexcept { return who; }

private:
    friend class client;
    std::unique_ptr<ipc_rpc::platform::named_pipe_channel> channel;
    const ipc_rpc::platform::peer_identity who;
    std::unique_ptr<ipc_rpc::shared_memory_queue> receive;
    std::unique_ptr<ipc_rpc::shared_memory_queue> send;
    const std::chrono::steady_clock::time_point until;
};

// Serves its calls, and has a thread that sees it go and lets go of all that it held.
class client final {
public:
    // `ended` is set once the client has gone. Throws what there is no memory or thread for.
    client(unannounced from, const std::string& announced, ipc_rpc::object_function_table_root table,
           std::shared_ptr<ipc_rpc::byte_budget> user_bytes,
           const std::shared_ptr<gds_helper::log::line_budget>& user_lines, ipc_rpc::platform::stop_event& ended);
    ~client();

    void end() noexcept { stop.set(); } // does not wait
    [[nodiscard]] bool gone() const noexcept { return has_gone; }
    [[nodiscard]] const ipc_rpc::platform::peer_identity& identity() const noexcept { return who; }

private:
    void watch();
    void see_end();

    std::unique_ptr<ipc_rpc::platform::named_pipe_channel> channel;
    const ipc_rpc::platform::peer_identity who;
    const std::string name; // fit for the log
    const std::shared_ptr<gds_helper::log::line_budget> lines;
    ipc_rpc::platform::stop_event& ended;
    ipc_rpc::platform::stop_event stop;
    std::shared_ptr<ipc_rpc::executor_thread_pool_interface> executor;
    std::shared_ptr<ipc_rpc::ipc_instance> connection;
    std::atomic<bool> has_gone{false};
    std::thread thread;
};

} // namespace service
