// The thread that takes packets and notifications from a receive queue.
#pragma once

#include "impl/rpc_callee.h"
#include "impl/rpc_caller.h"
#include "impl/shared_memory_queue.h"

#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace ipc_rpc {

class recv_queue_thread final {
public:
    struct targets {
        rpc_caller_instance& caller;
        rpc_callee_instance& callee;
        std::function<void(std::uint64_t)> on_notification; // may be empty
        // For an end that does not trust its peer: packets are copied before they are looked at, since the peer could
        // change them meanwhile, and this is called at the first one that breaks the format. Empty: packets are read
        // where they lie and bad ones are dropped.
        std::function<void()> on_bad_packet;
        // Before the first packet is dispatched; may be empty.
        std::function<void()> on_first_packet;
    };

    recv_queue_thread(std::shared_ptr<shared_memory_queue> from, targets where, std::string thread_name);
    // Shuts the queue and joins: never on the thread itself.
    ~recv_queue_thread();
    recv_queue_thread(const recv_queue_thread&) = delete;
    recv_queue_thread& operator=(const recv_queue_thread&) = delete;

    // True on the thread that receives from this queue.
    [[nodiscard]] static bool receives(const shared_memory_queue& from) noexcept;

private:
    void loop();
    [[nodiscard]] bool receive_span(std::span<const std::byte> block);
    [[nodiscard]] bool dispatch(std::span<const std::byte> block);

    const std::shared_ptr<shared_memory_queue> queue;
    const targets to;
    const std::string name;
    std::thread thread;
};

// The checks that every packet passes before it is dispatched. `block` may be longer than its packet.
// Returns the packet cut to its size, empty after a log line when it is to be dropped.
[[nodiscard]] std::span<const std::byte> check_packet(std::span<const std::byte> block, std::string_view channel_name);

} // namespace ipc_rpc
