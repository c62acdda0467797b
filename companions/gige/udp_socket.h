// IPv4 UDP sockets as the control master and the simulated camera use them. The platform's part is in posix/.
#pragma once

#include <chrono>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <optional>
#include <span>
#include <string>
#include <system_error>
#include <utility>

namespace gige {

// Address and port in host byte order.
struct endpoint {
    uint32_t address{};
    uint16_t port{};
    friend auto operator<=>(const endpoint&, const endpoint&) = default;
};

[[nodiscard]] std::string to_string(uint32_t address);
[[nodiscard]] std::string to_string(const endpoint& at);
[[nodiscard]] std::optional<uint32_t> parse_address(const std::string& text);

// Owns one descriptor. Sends block, receives never do. One thread receives; any number may send.
class udp_socket {
public:
    enum class sharing { alone, shared }; // shared: other sockets may bind the same address (broadcast receivers)

    udp_socket() = default;
    udp_socket(udp_socket&& other) noexcept : handle{std::exchange(other.handle, -1)} {}
    udp_socket& operator=(udp_socket&& other) noexcept {
        std::swap(handle, other.handle);
        return *this;
    }
    ~udp_socket();

    [[nodiscard]] static std::expected<udp_socket, std::error_code> open(endpoint bind_to,
                                                                         sharing share = sharing::alone);

    [[nodiscard]] bool is_open() const noexcept { return handle >= 0; }
    [[nodiscard]] int native() const noexcept { return handle; }
    [[nodiscard]] endpoint local() const;
    void close() noexcept;

    [[nodiscard]] std::error_code allow_broadcast();
    [[nodiscard]] std::error_code set_dont_fragment(bool on);
    [[nodiscard]] std::error_code set_receive_buffer(int bytes);
    [[nodiscard]] std::error_code set_send_buffer(int bytes);
    // Datagrams of others no longer come in. An unreachable peer becomes an error of the next send or receive.
    [[nodiscard]] std::error_code connect(endpoint peer);

    [[nodiscard]] std::error_code send(endpoint to, std::span<const std::byte> data) const;

    // The way a datagram takes: the interface, and the address of this host it has. For a socket bound to no address,
    // which also receives broadcasts; one such socket serves every interface.
    struct route {
        unsigned interface_index{};
        uint32_t local_address{};
    };
    [[nodiscard]] std::error_code report_routes(); // before the first receive with a route
    [[nodiscard]] std::error_code send(endpoint to, std::span<const std::byte> data, const route& by) const;
    [[nodiscard]] std::expected<std::size_t, std::error_code> receive(std::span<std::byte> buffer, endpoint& from,
                                                                      route& by) const;

    // One datagram, cut to the buffer. std::errc::operation_would_block when none waits.
    [[nodiscard]] std::expected<std::size_t, std::error_code> receive(std::span<std::byte> buffer,
                                                                      endpoint& from) const;

    struct datagram {
        std::span<const std::byte> head;
        std::span<const std::byte> body; // may be empty
    };
    struct batch_result {
        std::size_t sent{};
        std::error_code error{};
    };
    // At most max_batch datagrams with few system calls. With `segment` the kernel cuts equal ones out of one send.
    static constexpr std::size_t max_batch = 64;
    [[nodiscard]] batch_result send_batch(endpoint to, std::span<const datagram> datagrams, bool segment) const;

private:
    explicit udp_socket(int fd) noexcept : handle{fd} {}
    int handle = -1;
};

// Ends the wait of another thread. Signals are kept until drained.
class waker {
public:
    waker();
    ~waker();
    waker(const waker&) = delete;
    waker& operator=(const waker&) = delete;
    void wake() const noexcept;
    void drain() const noexcept;
    [[nodiscard]] int native() const noexcept { return handle; }

private:
    int handle = -1;
};

// Waits until one of the handles can be read or the time is up; negative entries are skipped.
// The result has bit i set when handle i is ready. At most 32 handles; no time means for ever.
[[nodiscard]] uint32_t wait_readable(std::span<const int> handles,
                                     std::optional<std::chrono::steady_clock::time_point> until);

} // namespace gige
