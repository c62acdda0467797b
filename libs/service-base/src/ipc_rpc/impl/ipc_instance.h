// One live connection: two queues, the calling and the called half, and the thread that receives for both.
#pragma once

#include "impl/rpc_callee.h"
#include "impl/rpc_caller.h"
#include "impl/shared_memory_queue.h"

#include <ipc_rpc/rpc_connection_client.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace ipc_rpc {

class ipc_instance final : public rpc_connection_client, public std::enable_shared_from_this<ipc_instance> {
public:
    struct create_params {
        std::unique_ptr<shared_memory_queue> send;
        std::unique_ptr<shared_memory_queue> receive;
        object_function_table_root table;
        std::shared_ptr<executor_thread_pool_interface> executor;
        std::string name; // of threads and channels: "clt-ipc-" or "srv-ipc-"
        std::string peer; // who is at the other end
        std::optional<std::uint32_t> peer_user;
        bool at_service = false;
        std::function<void(std::uint64_t)> on_notification; // on the receive thread
        std::function<void()> on_first_packet;              // on the receive thread
        bool drops_bad_packets = true;                      // else the first one ends the connection
        // On the receive thread, its last act: nothing comes from this peer any more, for a reason of its own, its
        // broken packets, or for want of memory here.
        std::function<void()> on_end;
        std::shared_ptr<byte_budget> call_bytes; // of the peer's calls; null for one of the connection's own
    };

    explicit ipc_instance(create_params params);
    ~ipc_instance() override;

    // After construction, when a shared owner exists.
    void start();
    // Ends everything; harmless when repeated. Not on the receive thread. Objects go first, then threads are waited
    // for.
    void shutdown();
    [[nodiscard]] shared_memory_queue& receive_side() noexcept { return *receive_queue; }
    // Shared: whoever only raises numbers holds the queue, and never the end of this.
    [[nodiscard]] const std::shared_ptr<shared_memory_queue>& send_side() const noexcept { return send_queue; }

    std::expected<std::uint64_t, std::error_code> register_object(object_entry object) override;
    std::error_code close_handle(std::uint64_t handle, std::uint32_t flags) override;
    std::error_code call(std::uint64_t handle, std::string_view function_name, std::span<const std::byte> parameters,
                         std::vector<std::byte>* result, std::uint32_t flags) override;
    [[nodiscard]] std::string get_peer_info() const override { return peer; }
    [[nodiscard]] std::optional<std::uint32_t> get_peer_user() const override { return peer_user; }
    [[nodiscard]] bool is_service() const override { return at_service; }
    [[nodiscard]] bool is_open() const override;

private:
    class queue_channel final : public channel_interface {
    public:
        queue_channel(shared_memory_queue& target, shared_memory_queue& other_way, std::string channel_name)
            : queue(target), answers(other_way), name(std::move(channel_name)) {}
        std::span<std::byte> acquire_block() override { return checked(queue.acquire_block()); }
        bool send_block(std::span<std::byte> block) override {
            const bool sent = queue.send_block(block);
            if (queue.is_closed()) answers.shut();
            return sent;
        }
        offered offer(std::span<const std::byte> packet) override { return queue.offer(packet); }
        std::string_view get_name() const override { return name; }

    private:
        // A peer that ends one direction has ended both.
        std::span<std::byte> checked(std::span<std::byte> block) {
            if (block.empty() && queue.is_closed()) answers.shut();
            return block;
        }

        shared_memory_queue& queue;
        shared_memory_queue& answers;
        std::string name;
    };

    void receive_main();
    void receive_loop();
    // False for a packet that breaks the format; it is dropped, with a line in the log.
    [[nodiscard]] bool receive_span(std::span<const std::byte> block);
    [[nodiscard]] bool is_receiving_here() const noexcept {
        return std::this_thread::get_id() == receive_thread_id.load();
    }
    // Why a call must not be made here; success when it may.
    [[nodiscard]] std::error_code check_caller(std::uint32_t flags) const;

    const std::string name;
    const std::string peer;
    const std::optional<std::uint32_t> peer_user;
    const bool at_service;
    const std::int64_t owner_process;
    const std::shared_ptr<shared_memory_queue> send_queue;
    std::unique_ptr<shared_memory_queue> receive_queue;
    queue_channel channel;
    const std::string receive_name;
    rpc_caller_instance caller;
    std::shared_ptr<rpc_callee_instance> callee;
    std::function<void(std::uint64_t)> on_notification;
    std::function<void()> on_first_packet;
    std::function<void()> on_end;
    const bool drops_bad_packets;
    std::atomic<bool> ended{false};
    std::atomic<std::thread::id> receive_thread_id{};
    std::thread receive_thread;
};

} // namespace ipc_rpc
