#include <gige/udp_socket.h>

#include "last_error.h"

#include <fmt/format.h>

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/udp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace gige {

namespace {

sockaddr_in to_native(endpoint at) {
    sockaddr_in native{};
    native.sin_family = AF_INET;
    native.sin_port = htons(at.port);
    native.sin_addr.s_addr = htonl(at.address);
    return native;
}

std::error_code set_option(int handle, int level, int name, int value) {
    return ::setsockopt(handle, level, name, &value, sizeof value) == 0 ? std::error_code{} : last_error();
}

} // namespace

std::string to_string(uint32_t address) {
    return fmt::format("{}.{}.{}.{}", address >> 24, address >> 16 & 255, address >> 8 & 255, address & 255);
}

std::string to_string(const endpoint& at) { return fmt::format("{}:{}", to_string(at.address), at.port); }

std::optional<uint32_t> parse_address(const std::string& text) {
    in_addr address{};
    if (::inet_pton(AF_INET, text.c_str(), &address) != 1) return {};
    return ntohl(address.s_addr);
}

udp_socket::~udp_socket() { close(); }

void udp_socket::close() noexcept {
    if (handle >= 0) ::close(std::exchange(handle, -1));
}

std::expected<udp_socket, std::error_code> udp_socket::open(endpoint bind_to, sharing share) {
    udp_socket opened{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    if (!opened.is_open()) return std::unexpected(last_error());
    if (share == sharing::shared) {
        if (const auto error = set_option(opened.handle, SOL_SOCKET, SO_REUSEADDR, 1)) return std::unexpected(error);
    }
    const auto native = to_native(bind_to);
    if (::bind(opened.handle, reinterpret_cast<const sockaddr*>(&native), sizeof native) != 0)
        return std::unexpected(last_error());
    return opened;
}

endpoint udp_socket::local() const {
    sockaddr_in native{};
    socklen_t size = sizeof native;
    if (::getsockname(handle, reinterpret_cast<sockaddr*>(&native), &size) != 0) return {};
    return {ntohl(native.sin_addr.s_addr), ntohs(native.sin_port)};
}

std::error_code udp_socket::allow_broadcast() { return set_option(handle, SOL_SOCKET, SO_BROADCAST, 1); }

std::error_code udp_socket::set_dont_fragment(bool on) {
    // PROBE sets the bit without heeding a path MTU learnt before.
    return set_option(handle, IPPROTO_IP, IP_MTU_DISCOVER, on ? IP_PMTUDISC_PROBE : IP_PMTUDISC_DONT);
}

std::error_code udp_socket::set_receive_buffer(int bytes) { return set_option(handle, SOL_SOCKET, SO_RCVBUF, bytes); }
std::error_code udp_socket::set_send_buffer(int bytes) { return set_option(handle, SOL_SOCKET, SO_SNDBUF, bytes); }

std::error_code udp_socket::connect(endpoint peer) {
    const auto native = to_native(peer);
    return ::connect(handle, reinterpret_cast<const sockaddr*>(&native), sizeof native) == 0 ? std::error_code{}
                                                                                             : last_error();
}

std::error_code udp_socket::report_routes() { return set_option(handle, IPPROTO_IP, IP_PKTINFO, 1); }

std::error_code udp_socket::send(endpoint to, std::span<const std::byte> data) const {
    const auto native = to_native(to);
    for (;;) {
        if (::sendto(handle, data.data(), data.size(), 0, reinterpret_cast<const sockaddr*>(&native), sizeof native) >=
            0)
            return {};
        if (errno != EINTR) return last_error();
    }
}

std::expected<std::size_t, std::error_code> udp_socket::receive(std::span<std::byte> buffer, endpoint& from) const {
    sockaddr_in native{};
    for (;;) {
        socklen_t size = sizeof native;
        const auto count =
            ::recvfrom(handle, buffer.data(), buffer.size(), MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&native), &size);
        if (count >= 0) {
            from = {ntohl(native.sin_addr.s_addr), ntohs(native.sin_port)};
            return static_cast<std::size_t>(count);
        }
        if (errno == EINTR) continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK)
            return std::unexpected(std::make_error_code(std::errc::operation_would_block));
        return std::unexpected(last_error());
    }
}

std::error_code udp_socket::send(endpoint to, std::span<const std::byte> data, const route& by) const {
    auto native = to_native(to);
    // The kernel only reads through this pointer.
    iovec piece{const_cast<std::byte*>(data.data()), data.size()};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(in_pktinfo))> control{};
    msghdr message{};
    message.msg_name = &native;
    message.msg_namelen = sizeof native;
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = IPPROTO_IP;
    header->cmsg_type = IP_PKTINFO;
    header->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
    in_pktinfo way{};
    way.ipi_ifindex = static_cast<int>(by.interface_index);
    way.ipi_spec_dst.s_addr = htonl(by.local_address);
    std::memcpy(CMSG_DATA(header), &way, sizeof way);
    for (;;) {
        if (::sendmsg(handle, &message, 0) >= 0) return {};
        if (errno != EINTR) return last_error();
    }
}

std::expected<std::size_t, std::error_code> udp_socket::receive(std::span<std::byte> buffer, endpoint& from,
                                                                route& by) const {
    for (;;) {
        sockaddr_in native{};
        iovec piece{buffer.data(), buffer.size()};
        alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(in_pktinfo))> control{};
        msghdr message{};
        message.msg_name = &native;
        message.msg_namelen = sizeof native;
        message.msg_iov = &piece;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const auto count = ::recvmsg(handle, &message, MSG_DONTWAIT);
        if (count < 0) {
            if (errno == EINTR) continue;
            if (errno == EAGAIN || errno == EWOULDBLOCK)
                return std::unexpected(std::make_error_code(std::errc::operation_would_block));
            return std::unexpected(last_error());
        }
        from = {ntohl(native.sin_addr.s_addr), ntohs(native.sin_port)};
        by = {};
        for (cmsghdr* each = CMSG_FIRSTHDR(&message); each != nullptr; each = CMSG_NXTHDR(&message, each)) {
            if (each->cmsg_level != IPPROTO_IP || each->cmsg_type != IP_PKTINFO) continue;
            in_pktinfo way{};
            std::memcpy(&way, CMSG_DATA(each), sizeof way);
            by = {static_cast<unsigned>(way.ipi_ifindex), ntohl(way.ipi_spec_dst.s_addr)};
        }
        return static_cast<std::size_t>(count);
    }
}

udp_socket::batch_result udp_socket::send_batch(endpoint to, std::span<const datagram> datagrams, bool segment) const {
    constexpr std::size_t max_segmented = 65507; // bytes of one UDP send
    std::array<mmsghdr, max_batch> messages;
    std::array<iovec, 2 * max_batch> pieces;
    std::array<std::size_t, max_batch> counts{};
    alignas(cmsghdr) std::array<std::array<char, CMSG_SPACE(sizeof(uint16_t))>, max_batch> controls{};
    auto native = to_native(to);

    datagrams = datagrams.first(std::min(datagrams.size(), max_batch));
    std::size_t piece = 0;
    std::size_t message = 0;
    for (std::size_t next = 0; next < datagrams.size(); ++message) {
        const std::size_t first_piece = piece;
        const std::size_t size = datagrams[next].head.size() + datagrams[next].body.size();
        std::size_t total = 0;
        std::size_t count = 0;
        for (; next < datagrams.size(); ++next, ++count) {
            const auto& [head, body] = datagrams[next];
            const std::size_t bytes = head.size() + body.size();
            if (count > 0 && (!segment || bytes > size || total + bytes > max_segmented)) break;
            // The kernel only reads through these pointers.
            pieces[piece++] = {const_cast<std::byte*>(head.data()), head.size()};
            if (!body.empty()) pieces[piece++] = {const_cast<std::byte*>(body.data()), body.size()};
            total += bytes;
            if (bytes < size) { // a shorter one must be the last of its send
                ++next;
                ++count;
                break;
            }
        }
        counts[message] = count;
        auto& header = messages[message].msg_hdr;
        header = {};
        header.msg_name = &native;
        header.msg_namelen = sizeof native;
        header.msg_iov = &pieces[first_piece];
        header.msg_iovlen = piece - first_piece;
        if (count > 1) {
            header.msg_control = controls[message].data();
            header.msg_controllen = controls[message].size();
            cmsghdr* control = CMSG_FIRSTHDR(&header);
            control->cmsg_level = SOL_UDP;
            control->cmsg_type = UDP_SEGMENT;
            control->cmsg_len = CMSG_LEN(sizeof(uint16_t));
            const auto segment_size = static_cast<uint16_t>(size);
            std::memcpy(CMSG_DATA(control), &segment_size, sizeof segment_size);
        }
    }

    batch_result result;
    for (std::size_t done = 0; done < message;) {
        const int sent = ::sendmmsg(handle, &messages[done], static_cast<unsigned>(message - done), 0);
        if (sent < 0) {
            if (errno == EINTR) continue;
            result.error = last_error();
            return result;
        }
        for (int i = 0; i < sent; ++i) result.sent += counts[done++];
    }
    return result;
}

waker::waker() : handle{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)} {
    if (handle < 0) throw std::system_error(last_error(), "eventfd");
}

waker::~waker() { ::close(handle); }

void waker::wake() const noexcept {
    const uint64_t one = 1;
    // A full counter is already a signal.
    [[maybe_unused]] const auto written = ::write(handle, &one, sizeof one);
}

void waker::drain() const noexcept {
    uint64_t count;
    [[maybe_unused]] const auto got = ::read(handle, &count, sizeof count);
}

uint32_t wait_readable(std::span<const int> handles, std::optional<std::chrono::steady_clock::time_point> until) {
    std::array<pollfd, 32> polled;
    const std::size_t count = std::min(handles.size(), polled.size());
    for (std::size_t i = 0; i < count; ++i) polled[i] = {handles[i], POLLIN, 0};
    for (;;) {
        timespec left{};
        if (until) {
            const auto wait = *until - std::chrono::steady_clock::now();
            const auto nanoseconds = std::max<int64_t>(0, std::chrono::nanoseconds{wait}.count());
            left = {static_cast<time_t>(nanoseconds / 1'000'000'000), static_cast<long>(nanoseconds % 1'000'000'000)};
        }
        const int ready = ::ppoll(polled.data(), count, until ? &left : nullptr, nullptr);
        if (ready < 0 && errno == EINTR) continue;
        uint32_t result = 0;
        if (ready > 0)
            for (std::size_t i = 0; i < count; ++i)
                if (polled[i].revents != 0) result |= 1U << i;
        return result;
    }
}

} // namespace gige
