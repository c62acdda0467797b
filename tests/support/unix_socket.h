// Sockets that a test binds by itself.
#pragma once

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>

#include <string>

namespace test_support {

// Listens, unless it is one for datagrams.
inline int bound_socket(int type, const std::string& path) {
    const int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0) << path;
    if (type != SOCK_DGRAM) {
        EXPECT_EQ(listen(fd, 16), 0);
    }
    return fd;
}

} // namespace test_support
