// The floor of a packet ring: the kernel copies each datagram into memory that it shares with this process, which needs
// a privilege and saves the system calls and the hand-over through a socket.
#include "floor.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>

namespace bench {

namespace {

constexpr size_t block_size = 1 << 20;
constexpr size_t block_count = 16;
constexpr unsigned block_time_ms = 1; // a block that is not full is handed over after that
constexpr size_t udp_header = 8;
constexpr int silence_ms = 500;

int interface_of(uint32_t address) {
    ifaddrs* all = nullptr;
    if (::getifaddrs(&all) != 0) fail("no list of interfaces");
    int index = 0;
    for (const ifaddrs* each = all; each != nullptr; each = each->ifa_next) {
        if (each->ifa_addr == nullptr || each->ifa_addr->sa_family != AF_INET) continue;
        const auto of = [](const sockaddr* from) {
            sockaddr_in value{};
            std::memcpy(&value, from, sizeof value);
            return ntohl(value.sin_addr.s_addr);
        };
        if (((of(each->ifa_addr) ^ address) & of(each->ifa_netmask)) == 0) {
            index = static_cast<int>(::if_nametoindex(each->ifa_name));
        }
    }
    ::freeifaddrs(all);
    return index;
}

// Only UDP from there to here passes; the data begin with the IP header.
void take_only(int handle, uint32_t source, gige::endpoint destination) {
    std::array<sock_filter, 11> code{
        {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, 12), BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, source, 0, 8),
         BPF_STMT(BPF_LD | BPF_W | BPF_ABS, 16), BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, destination.address, 0, 6),
         BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 9), BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, IPPROTO_UDP, 0, 4),
         BPF_STMT(BPF_LDX | BPF_B | BPF_MSH, 0), BPF_STMT(BPF_LD | BPF_H | BPF_IND, 2),
         BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, destination.port, 0, 1), BPF_STMT(BPF_RET | BPF_K, 0xFFFFFFFF),
         BPF_STMT(BPF_RET | BPF_K, 0)}};
    const sock_fprog program{static_cast<unsigned short>(code.size()), code.data()};
    if (::setsockopt(handle, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) != 0) fail("no filter");
}

// A UDP socket must hold the port, or the host answers each datagram with an ICMP message. It takes nothing.
void take_nothing(int handle) {
    sock_filter code = BPF_STMT(BPF_RET | BPF_K, 0);
    const sock_fprog program{1, &code};
    if (::setsockopt(handle, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) != 0) fail("no filter");
}

class ring {
public:
    ring(uint32_t source, gige::endpoint destination) : handle(::socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        if (handle < 0) fail("no packet socket");
        take_only(handle, source, destination);
        const int version = TPACKET_V3;
        tpacket_req3 request{};
        request.tp_block_size = block_size;
        request.tp_block_nr = block_count;
        request.tp_frame_size = 1 << 14;
        request.tp_frame_nr = block_size * block_count / request.tp_frame_size;
        request.tp_retire_blk_tov = block_time_ms;
        if (::setsockopt(handle, SOL_PACKET, PACKET_VERSION, &version, sizeof version) != 0 ||
            ::setsockopt(handle, SOL_PACKET, PACKET_RX_RING, &request, sizeof request) != 0) {
            fail("no packet ring");
        }
        void* mapped =
            ::mmap(nullptr, block_size * block_count, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, handle, 0);
        if (mapped == MAP_FAILED) fail("no memory of the packet ring");
        memory = static_cast<std::byte*>(mapped);
        sockaddr_ll place{};
        place.sll_family = AF_PACKET;
        place.sll_protocol = htons(ETH_P_IP);
        place.sll_ifindex = interface_of(destination.address);
        if (::bind(handle, reinterpret_cast<const sockaddr*>(&place), sizeof place) != 0)
            fail("no binding of the ring");
    }
    ~ring() {
        ::munmap(memory, block_size * block_count);
        ::close(handle);
    }
    ring(const ring&) = delete;
    ring& operator=(const ring&) = delete;

    // Waits for a block and gives each datagram's payload, behind the UDP header, to `take`; false after a silence.
    template <class Take>
    bool next_block(Take&& take) {
        auto* block = reinterpret_cast<tpacket_block_desc*>(memory + at * block_size);
        const std::atomic_ref<uint32_t> status{block->hdr.bh1.block_status};
        while ((status.load(std::memory_order_acquire) & TP_STATUS_USER) == 0) {
            pollfd wait{handle, POLLIN | POLLERR, 0};
            if (::poll(&wait, 1, silence_ms) == 0) return false;
        }
        const auto* packet = reinterpret_cast<const std::byte*>(block) + block->hdr.bh1.offset_to_first_pkt;
        for (uint32_t left = block->hdr.bh1.num_pkts; left != 0; --left) {
            const auto* header = reinterpret_cast<const tpacket3_hdr*>(packet);
            const std::byte* ip = packet + header->tp_net;
            const size_t headers = (std::to_integer<size_t>(*ip) & 0xF) * 4 + udp_header;
            if (header->tp_snaplen > headers) take(ip + headers, header->tp_snaplen - headers);
            packet += header->tp_next_offset;
        }
        status.store(TP_STATUS_KERNEL, std::memory_order_release);
        at = (at + 1) % block_count;
        return true;
    }

private:
    int handle;
    std::byte* memory = nullptr;
    size_t at = 0;
};

} // namespace

bool has_packet_ring() noexcept {
    const int handle = ::socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (handle >= 0) ::close(handle);
    return handle >= 0;
}

reception receive_from_ring(const place& where, const stream_shape& shape, bool copy) {
    auto socket = gige::udp_socket::open({where.consumer, 0});
    if (!socket) fail("no stream socket");
    take_nothing(socket->native());
    ring packets{where.camera, socket->local()};
    camera_control camera{where.camera, where.consumer};
    camera.open_stream(socket->local(), shape);

    floor_run run{camera, shape, copy};
    while (!run.done()) {
        const bool came = packets.next_block([&](const std::byte* data, size_t length) { run.take(data, length); });
        if (came)
            run.read();
        else if (run.begun())
            break;
    }
    return run.seen();
}

} // namespace bench
