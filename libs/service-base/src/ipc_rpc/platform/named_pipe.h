// The control channel: connected ends that keep message boundaries, and the end that listens.
#pragma once

#include "shared_names.h"
#include "stop_event.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace ipc_rpc::platform {

inline constexpr std::size_t control_message_size = 4096;

// The process at the other end of a control channel.
struct peer_identity {
    std::int64_t process_id = 0;
    std::uint32_t user_id = 0;
    std::uint32_t group_id = 0;
};

// One connected end of the control channel; keeps message boundaries. Thread-bound but for `send`.
class named_pipe_channel final {
public:
    // True means keep reading. The end of the peer is std::errc::connection_aborted.
    using packet_callback = std::function<bool(std::error_code, std::span<const std::byte>)>;

    // Connects to the server end of this name. While it is busy, waits for it up to `timeout` or until the event is
    // set (operation_canceled). The server must be of root, of this user or of the owner of /run/orv-gentl-gev, where
    // that is the folder (permission_denied).
    [[nodiscard]] static std::expected<std::unique_ptr<named_pipe_channel>, std::error_code>
    attach_to_server(const std::string& id, std::chrono::milliseconds timeout, const stop_event& stop);

    // Owns the connected handle, and that of the peer's process if it has one: then the process's end is the peer's
    // end, whoever has inherited its end of the channel.
    named_pipe_channel(std::intptr_t connected, peer_identity identity, std::intptr_t peer_process = -1) noexcept
        : handle(connected), process(peer_process), peer(identity) {}
    ~named_pipe_channel(); // ends the channel for everyone who has inherited this end
    named_pipe_channel(const named_pipe_channel&) = delete;
    named_pipe_channel& operator=(const named_pipe_channel&) = delete;

    // One whole message. Thread-safe.
    [[nodiscard]] std::error_code send(std::span<const std::byte> message) noexcept;
    // One whole message if there is one, without waiting: operation_would_block when there is none, and the end of
    // the peer as below. The bytes stay until the next one.
    [[nodiscard]] std::expected<std::span<const std::byte>, std::error_code> receive() noexcept;
    // Calls `on_packet` for each message on this thread until the event is set or `time_limit` has passed; after a
    // callback that returned false only waits for that.
    void run(const stop_event& stop, const packet_callback& on_packet,
             std::optional<std::chrono::milliseconds> time_limit = std::nullopt);
    [[nodiscard]] const peer_identity& identity() const noexcept { return peer; }
    [[nodiscard]] std::intptr_t native() const noexcept { return handle; }

private:
    std::intptr_t handle;
    std::intptr_t process;
    peer_identity peer;
    std::array<std::byte, control_message_size> buffer{};
};

// Waits until one of the handles is ready for reading or `time` has passed. The result tells of each; all false after
// the time.
[[nodiscard]] std::vector<bool> wait_readable(std::span<const std::intptr_t> handles,
                                              std::optional<std::chrono::milliseconds> time);

// The listening end of a control channel. Only one process holds a name; what a dead one left is taken over.
class named_pipe_listener final {
public:
    // std::errc::address_in_use when a living process holds the name. A socket of this name that a service manager has
    // handed to this process is taken as it is, with its mode and group, and outlives the listener.
    [[nodiscard]] static std::expected<std::unique_ptr<named_pipe_listener>, std::error_code>
    listen(const std::string& id, const object_access& access);

    ~named_pipe_listener();
    named_pipe_listener(const named_pipe_listener&) = delete;
    named_pipe_listener& operator=(const named_pipe_listener&) = delete;

    // A client that has connected, or null when there is none, or one that was turned away: one at a time, however fast
    // it comes back. Never waits. Clients that are neither root, nor this user, nor in the group, and those whose
    // process can't be watched, are turned away with `refused`, those that have ended without it.
    [[nodiscard]] std::expected<std::unique_ptr<named_pipe_channel>, std::error_code>
    accept(const std::function<void(const peer_identity&, std::error_code)>& refused);
    [[nodiscard]] std::intptr_t native() const noexcept { return handle; }

private:
    named_pipe_listener(std::intptr_t listening, std::intptr_t lock_handle, std::string socket_path,
                        object_access who) noexcept
        : handle(listening), lock(lock_handle), path(std::move(socket_path)), access(who) {}

    std::intptr_t handle;
    std::intptr_t lock; // -1: the socket is the service manager's
    std::string path;
    object_access access;
};

} // namespace ipc_rpc::platform
