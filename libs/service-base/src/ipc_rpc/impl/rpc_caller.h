// The half of a connection that calls: outstanding transactions and what answers them.
#pragma once

#include "impl/ipc_call_base.h"

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

namespace ipc_rpc {

// Thread-safe; receive_packet belongs to the receive thread.
class rpc_caller_instance final {
public:
    explicit rpc_caller_instance(channel_interface& send_channel) : channel(send_channel) {}

    [[nodiscard]] status call(std::uint64_t handle, std::string_view function, std::span<const std::byte> parameters,
                              std::vector<std::byte>* result, std::uint32_t flags);
    // Without a reply and without waiting.
    [[nodiscard]] channel_interface::offered offer(std::uint64_t handle, std::string_view function,
                                                   std::span<const std::byte> parameters, std::uint32_t flags);
    [[nodiscard]] status close_handle(std::uint64_t handle, std::uint32_t flags);
    void receive_packet(std::span<const std::byte> packet);
    // Every waiting call ends with connection_closed, and so does every later one.
    void close();

private:
    struct transaction {
        std::uint64_t seq_id = 0;
        std::vector<std::byte>* result = nullptr; // the caller's, until done
        assembly incoming;
        std::mutex mutex; // guards what follows, and the result
        std::condition_variable finished;
        bool done = false;
        status outcome = status::success;

        void finish(status with);
        [[nodiscard]] status wait();
    };
    using transaction_ptr = std::shared_ptr<transaction>;

    [[nodiscard]] std::uint64_t next_seq_id() noexcept;
    // Null when the connection has ended.
    [[nodiscard]] transaction_ptr begin(std::uint64_t seq_id, std::vector<std::byte>* result);
    void remove(std::uint64_t seq_id);
    template <class Send>
    [[nodiscard]] status run(std::uint32_t flags, std::vector<std::byte>* result, Send&& send);

    channel_interface& channel;
    std::atomic<std::uint64_t> sequence{0};
    std::mutex mutex; // guards what follows; taken before a transaction's
    std::vector<transaction_ptr> transactions;
    bool closed = false;
};

} // namespace ipc_rpc
