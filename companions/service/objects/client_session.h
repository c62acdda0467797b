// One client process's connection as the objects that it holds see it: whom to notify, under which numbers.
#pragma once

#include <ipc_rpc/rpc_connection_client.h>

#include <bitset>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace service {

// Raises a number at one client. Thread-safe; does nothing when the client is gone.
using notify_function = std::function<void(uint64_t)>;

class client_session final : public std::enable_shared_from_this<client_session> {
public:
    explicit client_session(notify_function raise) : notify(std::move(raise)) {}

    // A number of this client's, given back when the last owner lets go of it.
    class number final {
    public:
        number(std::shared_ptr<client_session> owner, uint64_t given) : session(std::move(owner)), value(given) {}
        ~number() { session->give_back(value); }
        number(const number&) = delete;
        number& operator=(const number&) = delete;
        [[nodiscard]] uint64_t get() const noexcept { return value; }
        void raise() const { session->notify(value); }

    private:
        std::shared_ptr<client_session> session;
        uint64_t value;
    };
    // Null when all are in use.
    [[nodiscard]] std::shared_ptr<number> allocate();

private:
    void give_back(uint64_t value);

    // As many as one notification word block holds.
    static constexpr size_t count = 512;

    const notify_function notify;
    std::mutex mutex; // guards used
    std::bitset<count> used;
};

} // namespace service
