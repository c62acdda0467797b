// The control channel as a Unix-domain socket that keeps message boundaries, and its waits.
#include <gds_helper/log.h>

#include "platform/named_pipe.h"
#include "posix/file_descriptor.h"
#include "posix/runtime_directory.h"
#include "posix/socket_activation.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace ipc_rpc::platform {

namespace {

using clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// How long a socket without a listener may be one whose service is about to listen.
constexpr milliseconds settle_time{200};
constexpr milliseconds busy_retry_interval{10};
constexpr int backlog = 16;

std::expected<sockaddr_un, std::error_code> socket_address(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        return std::unexpected(std::make_error_code(std::errc::filename_too_long));
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

const sockaddr* generic(const sockaddr_un& address) { return reinterpret_cast<const sockaddr*>(&address); }

std::expected<peer_identity, std::error_code> identity_of(int fd) {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return std::unexpected(last_error());
    return peer_identity{credentials.pid, credentials.uid, credentials.gid};
}

bool somebody_listens(const sockaddr_un& address) {
    const file_descriptor fd{socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    if (!fd) return false;
    return retry_interrupted([&] { return connect(fd.get(), generic(address), sizeof address); }) == 0 ||
           errno == EAGAIN;
}

bool is_in_group(int fd, const peer_identity& peer, std::uint32_t group) {
    if (peer.group_id == group) return true;
    std::vector<gid_t> groups(64);
    auto size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
    int result = getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size);
    if (result != 0 && errno == ERANGE) {
        groups.resize(size / sizeof(gid_t));
        result = getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size);
    }
    if (result != 0) return false;
    groups.resize(size / sizeof(gid_t));
    return std::ranges::find(groups, group) != groups.end();
}

// The client's process; empty when it has ended, or can't be watched.
file_descriptor process_of(const peer_identity& peer) {
    if (peer.process_id <= 0) { // of a namespace that this one can't see into
        errno = EPERM;
        return file_descriptor{};
    }
    return file_descriptor{static_cast<int>(syscall(SYS_pidfd_open, static_cast<pid_t>(peer.process_id), 0))};
}

// True when the event was set within the time.
bool wait_for(const stop_event& stop, milliseconds time) {
    pollfd entry{static_cast<int>(stop.native()), POLLIN, 0};
    return poll(&entry, 1, static_cast<int>(time.count())) > 0;
}

std::error_code connection_end() { return std::make_error_code(std::errc::connection_aborted); }

spdlog::logger& logger() {
    static const auto instance = gds_helper::log::get(gds_helper::log::logger_id::ipc);
    return *instance;
}

} // namespace

std::expected<std::unique_ptr<named_pipe_channel>, std::error_code>
named_pipe_channel::attach_to_server(const std::string& id, milliseconds timeout, const stop_event& stop) {
    const auto fail = [](const char* what, std::error_code error) {
        logger().error(fmt::runtime(what), error.message());
        return std::unexpected(error);
    };
    constexpr const char* open_failed = "Failed to open pipe. {}";

    const auto directory = runtime_directory(false);
    if (!directory) return fail(open_failed, directory.error());
    const auto address = socket_address(directory->path + "/" + id);
    if (!address) return fail(open_failed, address.error());
    file_descriptor fd{socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    if (!fd) return fail(open_failed, last_error());

    const auto start = clock::now();
    while (retry_interrupted([&] { return connect(fd.get(), generic(*address), sizeof *address); }) != 0) {
        const bool busy = errno == EAGAIN;
        // A socket without a listener is busy only for as long as a starting service takes between two steps.
        if (!busy && !(errno == ECONNREFUSED && clock::now() - start < settle_time)) {
            return fail(open_failed, last_error());
        }
        if (clock::now() - start >= timeout) {
            return fail("Failed to wait for named pipe. {}", std::make_error_code(std::errc::timed_out));
        }
        if (wait_for(stop, busy_retry_interval)) {
            return std::unexpected(std::make_error_code(std::errc::operation_canceled));
        }
    }
    const auto peer = identity_of(fd.get());
    if (!peer) return fail(open_failed, peer.error());
    if (peer->user_id != 0 && peer->user_id != geteuid() && peer->user_id != directory->trusted_user) {
        return fail(open_failed, std::make_error_code(std::errc::permission_denied));
    }
    return std::make_unique<named_pipe_channel>(fd.release(), *peer);
}

named_pipe_channel::~named_pipe_channel() {
    ::shutdown(static_cast<int>(handle), SHUT_RDWR);
    ::close(static_cast<int>(handle));
    if (process >= 0) ::close(static_cast<int>(process));
}

std::error_code named_pipe_channel::send(std::span<const std::byte> message) noexcept {
    // Never waits: a peer that reads nothing has room for the one message of the handshake.
    const auto sent = retry_interrupted(
        [&] { return ::send(static_cast<int>(handle), message.data(), message.size(), MSG_NOSIGNAL | MSG_DONTWAIT); });
    if (sent == static_cast<ssize_t>(message.size())) return {};
    if (sent < 0 && (errno == EPIPE || errno == ECONNRESET)) return connection_end();
    return sent < 0 ? last_error() : std::make_error_code(std::errc::message_size);
}

std::expected<std::span<const std::byte>, std::error_code> named_pipe_channel::receive() noexcept {
    const auto received =
        retry_interrupted([&] { return ::recv(static_cast<int>(handle), buffer.data(), buffer.size(), MSG_DONTWAIT); });
    if (received > 0) return std::span<const std::byte>{buffer}.first(static_cast<std::size_t>(received));
    if (received == 0 || errno == ECONNRESET) return std::unexpected(connection_end());
    if (errno == EAGAIN) return std::unexpected(std::make_error_code(std::errc::operation_would_block));
    return std::unexpected(last_error());
}

void named_pipe_channel::run(const stop_event& stop, const packet_callback& on_packet,
                             std::optional<milliseconds> time_limit) {
    const auto deadline = clock::now() + time_limit.value_or(milliseconds{0});
    bool reading = true;
    for (;;) {
        std::array<pollfd, 3> entries{pollfd{static_cast<int>(stop.native()), POLLIN, 0},
                                      pollfd{reading ? static_cast<int>(handle) : -1, POLLIN, 0},
                                      pollfd{reading ? static_cast<int>(process) : -1, POLLIN, 0}};
        int wait_ms = -1;
        if (time_limit) {
            const auto left = std::chrono::ceil<milliseconds>(deadline - clock::now());
            if (left.count() <= 0) return;
            wait_ms = static_cast<int>(left.count());
        }
        if (poll(entries.data(), entries.size(), wait_ms) < 0 && errno != EINTR) return;
        if (entries[0].revents != 0) return;
        if (entries[1].revents != 0) {
            if (const auto packet = receive()) {
                reading = on_packet({}, *packet);
                continue;
            } else if (packet.error() == std::errc::connection_aborted) {
                static_cast<void>(on_packet(packet.error(), {}));
                reading = false; // an ended channel stays ready for reading: never spin on it
            } else if (packet.error() != std::errc::operation_would_block) {
                reading = on_packet(packet.error(), {});
            }
        } else if (entries[2].revents != 0) {
            static_cast<void>(on_packet(connection_end(), {}));
            reading = false;
        }
    }
}

std::expected<std::unique_ptr<named_pipe_listener>, std::error_code>
named_pipe_listener::listen(const std::string& id, const object_access& access) {
    const auto directory = runtime_directory(true);
    if (!directory) return std::unexpected(directory.error());
    const std::string path = directory->path + "/" + id;
    const auto address = socket_address(path);
    if (!address) return std::unexpected(address.error());

    auto activated = take_activated_socket(path);
    if (!activated) return std::unexpected(activated.error());
    if (*activated) {
        // Path, mode and group are the service manager's, and so is it that there is one service only.
        return std::unique_ptr<named_pipe_listener>{new named_pipe_listener{(*activated)->release(), -1, {}, access}};
    }

    // Whoever holds the lock is the one living service of this name; it goes with its process, however that ends.
    file_descriptor lock{
        ::open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR)};
    if (!lock) return std::unexpected(last_error());
    if (retry_interrupted([&] { return flock(lock.get(), LOCK_EX | LOCK_NB); }) != 0) {
        return std::unexpected(errno == EWOULDBLOCK ? std::make_error_code(std::errc::address_in_use) : last_error());
    }
    if (struct stat found{}; lstat(path.c_str(), &found) == 0) {
        if (!S_ISSOCK(found.st_mode)) return std::unexpected(std::make_error_code(std::errc::file_exists));
        // A service manager that listens for a service holds no lock.
        if (somebody_listens(*address)) return std::unexpected(std::make_error_code(std::errc::address_in_use));
        ::unlink(path.c_str());
    }
    file_descriptor fd{socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    if (!fd || ::bind(fd.get(), generic(*address), sizeof *address) != 0) return std::unexpected(last_error());
    // Nobody can connect before `listen`, so the mode is right from the first client on.
    const mode_t mode = S_IRUSR | S_IWUSR | (access.group ? S_IRGRP | S_IWGRP : 0U);
    if ((access.group && ::chown(path.c_str(), static_cast<uid_t>(-1), *access.group) != 0) ||
        ::chmod(path.c_str(), mode) != 0 || ::listen(fd.get(), backlog) != 0) {
        const auto error = last_error();
        ::unlink(path.c_str());
        return std::unexpected(error);
    }
    return std::unique_ptr<named_pipe_listener>{new named_pipe_listener{fd.release(), lock.release(), path, access}};
}

named_pipe_listener::~named_pipe_listener() {
    if (lock >= 0) {
        ::unlink(path.c_str());
        ::close(static_cast<int>(lock));
    }
    ::close(static_cast<int>(handle));
}

std::expected<std::unique_ptr<named_pipe_channel>, std::error_code>
named_pipe_listener::accept(const std::function<void(const peer_identity&, std::error_code)>& refused) {
    file_descriptor fd{accept4(static_cast<int>(handle), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)};
    if (!fd) {
        if (errno == EINTR || errno == ECONNABORTED || errno == EAGAIN) return nullptr;
        return std::unexpected(last_error());
    }
    const auto peer = identity_of(fd.get());
    if (!peer) return nullptr;
    if (peer->user_id != 0 && peer->user_id != geteuid() &&
        !(access.group && is_in_group(fd.get(), *peer, *access.group))) {
        refused(*peer, std::make_error_code(std::errc::permission_denied));
        return nullptr;
    }
    file_descriptor process = process_of(*peer);
    if (!process) {
        // One that can't be watched would keep its cameras through whoever inherited its socket.
        if (errno != ESRCH) refused(*peer, last_error());
        return nullptr;
    }
    return std::make_unique<named_pipe_channel>(fd.release(), *peer, process.release());
}

std::vector<bool> wait_readable(std::span<const std::intptr_t> handles, std::optional<milliseconds> time) {
    std::vector<pollfd> entries;
    entries.reserve(handles.size());
    for (const std::intptr_t handle : handles) entries.push_back({static_cast<int>(handle), POLLIN, 0});
    poll(entries.data(), entries.size(), time ? static_cast<int>(std::max(time->count(), milliseconds::rep{0})) : -1);
    std::vector<bool> ready;
    ready.reserve(entries.size());
    for (const pollfd& entry : entries) ready.push_back(entry.revents != 0);
    return ready;
}

} // namespace ipc_rpc::platform
