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
#include <string>
#include <vector>

namespace service {

// Raises a number at one client. Thread-safe; does nothing when the client is gone.
using notify_function = std::function<void(uint64_t)>;

// What all connections of one user may hold together, each a part of what all users may.
struct user_budget {
    std::shared_ptr<ipc_rpc::byte_budget> open_devices;
    std::shared_ptr<ipc_rpc::byte_budget> document_bytes;
    std::shared_ptr<ipc_rpc::byte_budget> answer_bytes;
};

// Thread-safe.
class client_session final : public std::enable_shared_from_this<client_session> {
public:
    // `user` is the client's, to whom memory shared with it is given.
    client_session(notify_function raise, std::optional<uint32_t> user, const user_budget& of_user = {});

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
    // Null when all are in use. Given in turn, so that one is seldom given again soon: what was raised before could
    // reach its next owner.
    [[nodiscard]] std::shared_ptr<number> allocate();

    // One of the devices that this client may have open at a time. Null when all are open.
    [[nodiscard]] std::shared_ptr<ipc_rpc::reserved_bytes> take_device_seat();
    [[nodiscard]] std::optional<uint32_t> owner() const noexcept { return peer_user; }
    // Of documents that the service keeps for the client's devices.
    [[nodiscard]] const std::shared_ptr<ipc_rpc::byte_budget>& document_bytes() const noexcept { return documents; }
    // The document with its bytes taken from those, once for all devices that have it; given back when the last one
    // lets go of it. Null when there is no room.
    [[nodiscard]] std::shared_ptr<const std::string> keep_document(std::shared_ptr<const std::string> document);
    // Of answers to reads that have not been sent.
    [[nodiscard]] const std::shared_ptr<ipc_rpc::byte_budget>& answer_bytes() const noexcept { return answers; }

private:
    void give_back(uint64_t value);

    const notify_function notify;
    const std::optional<uint32_t> peer_user;
    const std::shared_ptr<ipc_rpc::byte_budget> seats;
    const std::shared_ptr<ipc_rpc::byte_budget> documents;
    const std::shared_ptr<ipc_rpc::byte_budget> answers;
    std::mutex mutex; // guards what follows
    std::bitset<ipc_rpc::limits::most_numbers + 1> used;
    uint64_t last = 0; // given
    std::vector<std::weak_ptr<const std::string>> kept_documents;
};

} // namespace service
