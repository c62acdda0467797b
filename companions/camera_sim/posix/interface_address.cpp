#include "interface_address.h"

#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace camera_sim::posix {

std::error_code set_interface_address(const std::string& name, uint32_t address, uint32_t mask) {
    if (name.size() >= IFNAMSIZ) return std::make_error_code(std::errc::invalid_argument);
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socket < 0) return {errno, std::system_category()};
    std::error_code error;
    const auto set = [&](unsigned long request, uint32_t value) {
        ifreq wanted{};
        name.copy(wanted.ifr_name, IFNAMSIZ - 1);
        sockaddr_in native{};
        native.sin_family = AF_INET;
        native.sin_addr.s_addr = htonl(value);
        std::memcpy(&wanted.ifr_addr, &native, sizeof native);
        if (!error && ::ioctl(socket, request, &wanted) != 0) error = {errno, std::system_category()};
    };
    set(SIOCSIFADDR, address);
    set(SIOCSIFNETMASK, mask);
    ::close(socket);
    return error;
}

} // namespace camera_sim::posix
