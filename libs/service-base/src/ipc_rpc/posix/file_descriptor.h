// A descriptor that is closed with its owner.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace ipc_rpc::platform {

class file_descriptor final {
public:
    explicit file_descriptor(int descriptor = -1) noexcept : fd(descriptor) {}
    file_descriptor(file_descriptor&& other) noexcept : fd(other.release()) {}
    file_descriptor& operator=(file_descriptor&& other) noexcept {
        std::swap(fd, other.fd);
        return *this;
    }
    ~file_descriptor() {
        if (fd >= 0) ::close(fd);
    }

    [[nodiscard]] int get() const noexcept { return fd; }
    [[nodiscard]] int release() noexcept { return std::exchange(fd, -1); }
    explicit operator bool() const noexcept { return fd >= 0; }

private:
    int fd;
};

[[nodiscard]] inline std::error_code last_error() noexcept { return {errno, std::generic_category()}; }

// Repeats a system call that a signal interrupted.
template <class Call>
auto retry_interrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) result = call();
    return result;
}

} // namespace ipc_rpc::platform
