#include "service_manager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace service {

void tell_service_manager(const char* state) noexcept {
    const char* path = std::getenv("NOTIFY_SOCKET");
    if (path == nullptr || (*path != '/' && *path != '@')) return;
    const std::size_t length = std::strlen(path);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (length >= sizeof address.sun_path) return;
    std::memcpy(address.sun_path, path, length);
    if (*path == '@') address.sun_path[0] = '\0'; // a name without a file
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return;
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
    static_cast<void>(
        sendto(fd, state, std::strlen(state), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address), size));
    close(fd);
}

} // namespace service
