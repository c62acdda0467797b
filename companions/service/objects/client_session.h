// One client process's connection as the objects that it holds see it: whom to notify, under which numbers.
#pragma once

#include <ipc_rpc/byte_budget.h>
#include <ipc_rpc/limits.h>
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

// Thread-safe.
class client_session final : public std::enable_shared_from_this<client_session> {
public:
    // `user` is the client's, to whom memory shared with it is given.
    client_session(notify_function raise, std::optional<uint32_t> user) : notify(std::move(raise)), peer_user(user) {}

    // A number of this client's, given back when the last owner lets go of it.
    class number final {
    public:
        number(std::shared_ptr<client_session> owner, uint64_t given) : session(std::move(owner)), value(given) {}
        ~number() {
            if (value != 0) session->give_back(value);
        }
        number(const number&) = delete;
        number& operator=(const number&) = delete;
        [[nodiscard]] uint64_t get() const noexcept { return value; }
        void raise() const { session->notify(value); }

    private:
        friend client_session;
        std::shared_ptr<client_session> session;
        uint64_t value; // 0: none yet
    };
    // Null when all are in use.
    [[nodiscard]] std::shared_ptr<number> allocate();

    // One of the devices that this client may have open at a time.
    class device_seat final {
    public:
        device_seat() = default;
        ~device_seat() {
            if (session) session->leave_device_seat();
        }
        device_seat(const device_seat&) = delete;
        device_seat& operator=(const device_seat&) = delete;

    private:
        friend client_session;
        std::shared_ptr<client_session> session;
    };
    // Null when all are open.
    [[nodiscard]] std::shared_ptr<device_seat> take_device_seat();
    [[nodiscard]] std::optional<uint32_t> owner() const noexcept { return peer_user; }
    // Of documents that the service keeps for the client's devices.
    [[nodiscard]] const std::shared_ptr<ipc_rpc::byte_budget>& document_bytes() const noexcept { return documents; }

private:
    void give_back(uint64_t value);
    void leave_device_seat();

    const notify_function notify;
    const std::optional<uint32_t> peer_user;
    const std::shared_ptr<ipc_rpc::byte_budget> documents =
        std::make_shared<ipc_rpc::byte_budget>(ipc_rpc::limits::most_document_bytes);
    std::mutex mutex; // guards what follows
    std::bitset<ipc_rpc::limits::most_numbers + 1> used;
    std::size_t open_devices = 0;
};

} // namespace service
