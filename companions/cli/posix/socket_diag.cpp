#include "socket_diag.h"

#include <arpa/inet.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cstring>

namespace cli {

namespace {

struct question {
    nlmsghdr head;
    inet_diag_req_v2 body;
};

// The place in the attribute INET_DIAG_SKMEMINFO.
constexpr size_t receive_buffer_word = SK_MEMINFO_RCVBUF;

std::optional<uint64_t> buffer_in(nlmsghdr& message) {
    auto length = static_cast<int>(message.nlmsg_len) - static_cast<int>(NLMSG_LENGTH(sizeof(inet_diag_msg)));
    auto* const start = reinterpret_cast<std::byte*>(&message) + NLMSG_LENGTH(sizeof(inet_diag_msg));
    for (auto* item = reinterpret_cast<rtattr*>(start); RTA_OK(item, length); item = RTA_NEXT(item, length)) {
        if (item->rta_type != INET_DIAG_SKMEMINFO || RTA_PAYLOAD(item) < sizeof(uint32_t) * (receive_buffer_word + 1))
            continue;
        uint32_t size = 0;
        std::memcpy(&size, static_cast<const std::byte*>(RTA_DATA(item)) + sizeof size * receive_buffer_word,
                    sizeof size);
        return uint64_t{size} / 2; // the kernel doubles it for its own bookkeeping
    }
    return std::nullopt;
}

class diag_socket {
public:
    diag_socket() : descriptor(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG)) {
        const timeval longest{1, 0}; // the kernel answers at once or never
        if (descriptor >= 0) setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &longest, sizeof longest);
    }
    ~diag_socket() {
        if (descriptor >= 0) close(descriptor);
    }
    diag_socket(const diag_socket&) = delete;
    diag_socket& operator=(const diag_socket&) = delete;

    [[nodiscard]] std::optional<uint64_t> buffer_of(uint64_t inode) const {
        question asked{};
        asked.head.nlmsg_len = sizeof asked;
        asked.head.nlmsg_type = SOCK_DIAG_BY_FAMILY;
        asked.head.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
        asked.body.sdiag_family = AF_INET;
        asked.body.sdiag_protocol = IPPROTO_UDP;
        asked.body.idiag_ext = 1 << (INET_DIAG_SKMEMINFO - 1);
        asked.body.idiag_states = ~0U;
        if (descriptor < 0 || send(descriptor, &asked, sizeof asked, 0) < 0) return std::nullopt;
        alignas(nlmsghdr) std::array<std::byte, 32768> buffer;
        for (;;) {
            const ssize_t got = recv(descriptor, buffer.data(), buffer.size(), 0);
            if (got <= 0) return std::nullopt;
            auto left = static_cast<size_t>(got);
            for (auto* message = reinterpret_cast<nlmsghdr*>(buffer.data()); NLMSG_OK(message, left);
                 message = NLMSG_NEXT(message, left)) {
                if (message->nlmsg_type == NLMSG_DONE || message->nlmsg_type == NLMSG_ERROR) return std::nullopt;
                if (message->nlmsg_len < NLMSG_LENGTH(sizeof(inet_diag_msg))) continue;
                if (static_cast<const inet_diag_msg*>(NLMSG_DATA(message))->idiag_inode == inode)
                    return buffer_in(*message);
            }
        }
    }

private:
    int descriptor;
};

} // namespace

std::optional<uint64_t> receive_buffer_of(uint64_t inode) { return diag_socket{}.buffer_of(inode); }

} // namespace cli
