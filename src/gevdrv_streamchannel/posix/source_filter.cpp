#include "source_filter.h"

#include <linux/filter.h>
#include <sys/socket.h>

#include <cerrno>
#include <iterator>

namespace gev::streamchannel::posix {

namespace {

// Offsets are into the UDP datagram; these two reach the source address of the IP header in front of it.
constexpr auto network_header = static_cast<uint32_t>(SKF_NET_OFF);
constexpr uint32_t source_address = 12;

} // namespace

std::error_code accept_only_from(int socket, uint32_t address) noexcept {
    sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, network_header + source_address),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, address, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, UINT32_MAX), // the whole datagram
        BPF_STMT(BPF_RET | BPF_K, 0),
    };
    const sock_fprog program{std::size(code), code};
    if (::setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) == 0) return {};
    return {errno, std::generic_category()};
}

} // namespace gev::streamchannel::posix
