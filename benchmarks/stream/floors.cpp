// What any receiver must pay: the reads, and one copy per datagram.
#include "floor.h"

#include <netinet/in.h>
#include <netinet/udp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>

#ifndef UDP_GRO
#define UDP_GRO 104
#endif

namespace bench {

namespace {

constexpr size_t batch = 64;
constexpr int silence_ms = 500;

struct ring {
    explicit ring(size_t buffer_size) : memory(batch * buffer_size), vectors(batch), controls(batch), messages(batch) {
        for (size_t i = 0; i < batch; ++i) {
            vectors[i] = {memory.data() + i * buffer_size, buffer_size};
            messages[i] = {};
            messages[i].msg_hdr.msg_iov = &vectors[i];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
    }
    struct alignas(cmsghdr) control {
        char bytes[CMSG_SPACE(sizeof(int))];
    };
    std::vector<std::byte> memory;
    std::vector<iovec> vectors;
    std::vector<control> controls;
    std::vector<mmsghdr> messages;
};

size_t segment_of(msghdr& message, size_t length) {
    for (cmsghdr* item = CMSG_FIRSTHDR(&message); item != nullptr; item = CMSG_NXTHDR(&message, item)) {
        if (item->cmsg_level != IPPROTO_UDP || item->cmsg_type != UDP_GRO) continue;
        int size = 0;
        std::memcpy(&size, CMSG_DATA(item), sizeof size);
        if (size > 0) return static_cast<size_t>(size);
    }
    return std::max<size_t>(length, 1);
}

} // namespace

reception receive_bare(const place& where, const stream_shape& shape, bool copy, bool coalesce,
                       std::chrono::microseconds pause) {
    const gige::udp_socket socket = open_stream_socket(where.consumer);
    const int handle = socket.native();
    const int on = 1;
    if (coalesce && ::setsockopt(handle, IPPROTO_UDP, UDP_GRO, &on, sizeof on) != 0) fail("no coalesced reception");
    ring reads{coalesce ? 65535 : shape.packet_size + 100};
    camera_control camera{where.camera, where.consumer};
    camera.open_stream(socket.local(), shape);

    floor_run run{camera, shape, copy};
    while (!run.done()) {
        if (coalesce) {
            for (size_t i = 0; i < batch; ++i) {
                reads.messages[i].msg_hdr.msg_control = &reads.controls[i];
                reads.messages[i].msg_hdr.msg_controllen = sizeof(ring::control);
            }
        }
        const int count = ::recvmmsg(handle, reads.messages.data(), batch, MSG_DONTWAIT, nullptr);
        if (count < 0 && errno != EAGAIN) fail("the read failed");
        if (count <= 0) {
            pollfd wait{handle, POLLIN, 0};
            if (::poll(&wait, 1, silence_ms) == 0 && run.begun()) break;
            continue;
        }
        run.read();
        for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
            const std::byte* data = static_cast<const std::byte*>(reads.vectors[i].iov_base);
            size_t rest = reads.messages[i].msg_len;
            const size_t segment = coalesce ? segment_of(reads.messages[i].msg_hdr, rest) : rest;
            while (rest != 0) {
                const size_t length = std::min(segment, rest);
                run.take(data, length);
                data += length;
                rest -= length;
            }
        }
        if (pause.count() != 0 && static_cast<size_t>(count) < batch) std::this_thread::sleep_for(pause);
    }
    return run.seen();
}

} // namespace bench
