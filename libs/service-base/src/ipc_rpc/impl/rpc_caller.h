// The half of a connection that calls and waits for replies.
#pragma once

#include "impl/channel_interface.h"

#include <ipc_rpc/rpc_packet.h>
#include <ipc_rpc/status.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string_view>
#include <vector>

namespace ipc_rpc {

struct transaction;

// Thread-safe; one thread delivers replies. Lock order: list, then a transaction's own.
class rpc_caller_instance final {
public:
    // The channel must outlive it.
    explicit rpc_caller_instance(channel_interface& to) noexcept : channel(to) {}

    [[nodiscard]] status call(std::uint64_t handle, std::string_view function_name,
                              std::span<const std::byte> parameters, std::vector<std::byte>* result,
                              std::uint32_t flags);
    [[nodiscard]] status close_handle(std::uint64_t handle, std::uint32_t flags);

    // Types 6 to 8.
    void receive_packet(std::span<const std::byte> packet);

    // Every call that waits, and every later one, ends with connection_closed.
    void close();

private:
    template <class Send>
    status run(std::vector<std::byte>* result, std::uint32_t flags, Send send);
    [[nodiscard]] std::uint64_t next_seq_id() noexcept;
    void remove(const std::shared_ptr<transaction>& which);

    channel_interface& channel;
    std::atomic<std::uint64_t> sequence{0};

    std::mutex list_mutex; // guards what follows
    std::vector<std::shared_ptr<transaction>> transactions;
    bool closed = false;
};

} // namespace ipc_rpc
