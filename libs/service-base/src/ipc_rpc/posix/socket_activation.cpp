#include "posix/socket_activation.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <charconv>
#include <cstdlib>
#include <string_view>

namespace ipc_rpc::platform {

namespace {

constexpr int first_descriptor = 3;

std::optional<long> number_in(const char* name) {
    const char* text = std::getenv(name);
    if (text == nullptr) return {};
    const std::string_view digits{text};
    long value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (error != std::errc{} || end != digits.data() + digits.size()) return {};
    return value;
}

int option_of(int fd, int option) {
    int value = 0;
    socklen_t size = sizeof value;
    return getsockopt(fd, SOL_SOCKET, option, &value, &size) == 0 ? value : -1;
}

bool listens_at(int fd, const std::string& path) {
    if (option_of(fd, SO_DOMAIN) != AF_UNIX || option_of(fd, SO_TYPE) != SOCK_SEQPACKET ||
        option_of(fd, SO_ACCEPTCONN) != 1)
        return false;
    sockaddr_un address{};
    socklen_t size = sizeof address;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) return false;
    // The path in the address need not end with a zero.
    const auto begin = static_cast<const char*>(address.sun_path);
    const std::size_t length = size - offsetof(sockaddr_un, sun_path);
    return std::string_view{begin, length}.substr(0, std::string_view{begin, length}.find('\0')) == path;
}

} // namespace

std::expected<std::optional<file_descriptor>, std::error_code> take_activated_socket(const std::string& path) {
    // The variables stay: other threads may be reading the environment. Children see that they are not meant.
    static std::atomic_flag looked;
    if (looked.test_and_set()) return std::nullopt;
    const auto process = number_in("LISTEN_PID");
    const auto count = number_in("LISTEN_FDS");
    if (process != getpid() || !count || *count == 0) return std::nullopt;
    if (*count != 1 || !listens_at(first_descriptor, path))
        return std::unexpected(std::make_error_code(std::errc::invalid_argument));
    // As a socket of our own: not inherited, and accepting never waits.
    file_descriptor fd{first_descriptor};
    const int flags = fcntl(fd.get(), F_GETFL);
    if (flags < 0 || fcntl(fd.get(), F_SETFL, flags | O_NONBLOCK) != 0 || fcntl(fd.get(), F_SETFD, FD_CLOEXEC) != 0)
        return std::unexpected(last_error());
    return fd;
}

} // namespace ipc_rpc::platform
