#include "datagram_reader.h"

#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <vector>

#ifndef UDP_GRO
#define UDP_GRO 104
#endif

namespace gev::streamchannel::posix {

namespace {

constexpr size_t largest_coalesced = 65535;

} // namespace

std::error_code receive_now(int socket, std::span<std::byte> buffer, size_t& received) noexcept {
    ssize_t result = -1;
    do {
        result = ::recv(socket, buffer.data(), buffer.size(), MSG_DONTWAIT);
    } while (result < 0 && errno == EINTR);
    received = result < 0 ? 0 : static_cast<size_t>(result);
    if (result >= 0) return {};
    if (errno == EAGAIN || errno == EWOULDBLOCK) return std::make_error_code(std::errc::operation_would_block);
    return {errno, std::generic_category()};
}

size_t set_receive_buffer(int socket, int bytes, std::error_code& error) noexcept {
    error = {};
    if (::setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0 &&
        ::setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes) != 0) {
        error = {errno, std::generic_category()};
    }
    int in_force = 0;
    socklen_t length = sizeof in_force;
    if (::getsockopt(socket, SOL_SOCKET, SO_RCVBUF, &in_force, &length) != 0) return 0;
    return static_cast<size_t>(in_force) / 2; // the kernel doubles it for its own bookkeeping
}

struct datagram_reader::batch_state {
    struct alignas(cmsghdr) control_buffer {
        char bytes[CMSG_SPACE(sizeof(int))];
    };

    void offer_control(size_t index) noexcept {
        messages[index].msg_hdr.msg_control = &controls[index];
        messages[index].msg_hdr.msg_controllen = sizeof(control_buffer);
    }

    std::unique_ptr<std::byte[]> memory; // untouched, and so no pages of it, until datagrams come
    std::vector<iovec> vectors;
    std::vector<control_buffer> controls;
    std::vector<mmsghdr> messages;
    size_t filled = 0; // by the last read
};

datagram_reader::datagram_reader(int socket, size_t batch, size_t datagram_size, size_t margin, bool coalesce)
    : state(std::make_unique<batch_state>()), descriptor(socket) {
    const int on = 1;
    coalescing = coalesce && ::setsockopt(socket, IPPROTO_UDP, UDP_GRO, &on, sizeof on) == 0;
    const size_t capacity = coalescing ? largest_coalesced : datagram_size;
    const size_t stride = capacity + margin;
    state->memory = std::make_unique_for_overwrite<std::byte[]>(batch * stride);
    state->vectors.resize(batch);
    state->controls.resize(batch);
    state->messages.resize(batch);
    for (size_t i = 0; i < batch; ++i) {
        state->vectors[i] = {state->memory.get() + i * stride, capacity};
        msghdr& header = state->messages[i].msg_hdr;
        header = {};
        header.msg_iov = &state->vectors[i];
        header.msg_iovlen = 1;
        if (coalescing) state->offer_control(i);
    }
}

datagram_reader::~datagram_reader() = default;

size_t datagram_reader::read(std::error_code& error) noexcept {
    error = {};
    if (coalescing) {
        for (size_t i = 0; i < state->filled; ++i) state->offer_control(i);
    }
    int count = -1;
    do {
        count = ::recvmmsg(descriptor, state->messages.data(), static_cast<unsigned>(state->messages.size()),
                           MSG_DONTWAIT, nullptr);
    } while (count < 0 && errno == EINTR);
    state->filled = count < 0 ? 0 : static_cast<size_t>(count);
    if (count >= 0) return state->filled;
    if (errno != EAGAIN && errno != EWOULDBLOCK) error = {errno, std::generic_category()};
    return 0;
}

std::span<const std::byte> datagram_reader::filled(size_t index) const noexcept {
    return {static_cast<const std::byte*>(state->vectors[index].iov_base), state->messages[index].msg_len};
}

size_t datagram_reader::segment_size(size_t index) const noexcept {
    if (!coalescing) return 0;
    msghdr& header = state->messages[index].msg_hdr;
    for (cmsghdr* item = CMSG_FIRSTHDR(&header); item != nullptr; item = CMSG_NXTHDR(&header, item)) {
        if (item->cmsg_level != IPPROTO_UDP || item->cmsg_type != UDP_GRO) continue;
        int size = 0;
        std::memcpy(&size, CMSG_DATA(item), sizeof size);
        return size > 0 ? static_cast<size_t>(size) : 0;
    }
    return 0;
}

} // namespace gev::streamchannel::posix
