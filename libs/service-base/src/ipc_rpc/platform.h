// What the RPC subsystem asks of the platform. Implemented in posix/; win32/ is to mirror it file by file.
#pragma once

#include <array>
#include <atomic>
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

// Manual-reset event that a control channel's wait ends on. Any thread may set it.
class stop_event final {
public:
    // Throws std::system_error ("Failed to create semaphore") when the system has no event left.
    stop_event();
    ~stop_event();
    stop_event(const stop_event&) = delete;
    stop_event& operator=(const stop_event&) = delete;

    void set() noexcept;
    void reset() noexcept;
    [[nodiscard]] bool is_set() const noexcept;
    [[nodiscard]] std::intptr_t native() const noexcept { return handle; }

private:
    std::intptr_t handle;
};

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
    // set (operation_canceled). The server must be of root or of this user (permission_denied).
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

// Who may use the objects that a service creates. With an owner it alone may, if this process may give objects away;
// otherwise this user, and members of the group if there is one.
struct object_access {
    std::optional<std::uint32_t> group;
    std::optional<std::uint32_t> owner;
};

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

    // A client that has connected, or null when there is none; never waits. Clients that are neither root, nor this
    // user, nor in the group, and those whose process can't be watched, are turned away with `refused`, those that have
    // ended without it.
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

// Protects a program from peers that shrink the memory they share with it. It belongs to a program, which installs it
// before its first mapping; a library can't claim what it needs.
class mapping_guard {
public:
    // The flag is set once an access has found nothing there; the region then reads as zeros. Null without room.
    [[nodiscard]] virtual const std::atomic<bool>* add(std::span<std::byte> region) noexcept = 0;
    virtual void remove(std::span<std::byte> region) noexcept = 0;

protected:
    ~mapping_guard() = default;
};
void install_mapping_guard(mapping_guard& guard) noexcept;

// A region shared under a name. Failures throw std::system_error.
class shared_mapping final {
public:
    // New and zeroed; refused when the name exists. Owns the name until release_name or destruction.
    [[nodiscard]] static shared_mapping create(const std::string& name, std::size_t size, const object_access& access);
    // The whole existing object, at least `min_size` bytes.
    [[nodiscard]] static shared_mapping open(const std::string& name, std::size_t min_size);

    shared_mapping(shared_mapping&& other) noexcept
        : mapped(std::exchange(other.mapped, {})),
          owned_name(std::exchange(other.owned_name, {})),
          broken(std::exchange(other.broken, nullptr)) {}
    shared_mapping& operator=(shared_mapping&&) = delete;
    ~shared_mapping();

    [[nodiscard]] std::span<std::byte> bytes() const noexcept { return mapped; }
    // The peer took the memory away. Only a program with a guard lives to ask.
    [[nodiscard]] bool is_broken() const noexcept { return broken != nullptr && broken->load(); }
    void release_name() noexcept;

private:
    explicit shared_mapping(std::string name) noexcept : owned_name(std::move(name)) {}
    void map(int descriptor, std::size_t size);

    std::span<std::byte> mapped;
    std::string owned_name; // empty: opened, or the name is gone
    const std::atomic<bool>* broken = nullptr;
};

// Counting semaphore under a name. Failures throw std::system_error. Its memory is the peer's to write: nothing that
// stands there makes a wait or a post fail, hang or end the process.
class named_semaphore final {
public:
    static constexpr std::uint32_t most = 1000; // a higher count is a peer's lie

    enum class outcome { taken, nothing, broken };

    // Count 0; refused when the name exists. Owns the name until release_name or destruction.
    [[nodiscard]] static named_semaphore create(const std::string& name, const object_access& access);
    [[nodiscard]] static named_semaphore open(const std::string& name);

    // `nothing` after the time, or earlier: callers look whether they still want to wait.
    [[nodiscard]] outcome wait(std::chrono::milliseconds time) noexcept;
    // A count that can't grow any more is no error: whoever waits wakes up all the same.
    void post(unsigned count) noexcept;
    [[nodiscard]] bool is_broken() const noexcept { return memory.is_broken(); }
    void release_name() noexcept { memory.release_name(); }

private:
    explicit named_semaphore(shared_mapping mapped) noexcept : memory(std::move(mapped)) {}
    [[nodiscard]] std::uint64_t& word() const noexcept;
    [[nodiscard]] outcome try_take() noexcept;

    shared_mapping memory;
};

// Object names of this platform begin with this.
[[nodiscard]] std::string object_name(const std::string& base);
// Differs for every call in every process; tells which process made it, and can't be guessed.
[[nodiscard]] std::string unique_text();

} // namespace ipc_rpc::platform
