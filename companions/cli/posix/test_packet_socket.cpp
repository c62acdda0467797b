#include "test_packet_socket.h"

#include <array>
#include <cstddef>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace cli {

test_packet_socket::test_packet_socket(uint32_t own_address)
    : descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(own_address);
    socklen_t length = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (descriptor >= 0 && bind(descriptor, generic, length) == 0 && getsockname(descriptor, generic, &length) == 0)
        bound = ntohs(address.sin_port);
}

test_packet_socket::~test_packet_socket() {
    if (descriptor >= 0) close(descriptor);
}

void test_packet_socket::open_way(uint32_t camera, uint16_t source) const {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(camera);
    address.sin_port = htons(source);
    static_cast<void>(sendto(descriptor, "", 0, 0, reinterpret_cast<const sockaddr*>(&address), sizeof address));
}

bool test_packet_socket::receives(uint64_t bytes, std::chrono::milliseconds longest) const {
    std::array<std::byte, 65536> buffer;
    pollfd entry{descriptor, POLLIN, 0};
    const auto until = std::chrono::steady_clock::now() + longest;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
        if (left.count() <= 0 || poll(&entry, 1, static_cast<int>(left.count())) <= 0) return false;
        const ssize_t got = recv(descriptor, buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (got >= 0 && static_cast<uint64_t>(got) >= bytes) return true;
    }
}

} // namespace cli
