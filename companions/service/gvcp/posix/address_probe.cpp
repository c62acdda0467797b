#include "../address_probe.h"

#include <gige/gvcp.h>
#include <gige/udp_socket.h>

#include <net/ethernet.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>

namespace gvcp_master {

namespace {

using clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int rounds = 3; // a probe may be lost
constexpr milliseconds round_time{200};
constexpr milliseconds stop_slice{50};

std::error_code last_error() { return {errno, std::system_category()}; }
std::unexpected<std::error_code> canceled() {
    return std::unexpected(std::make_error_code(std::errc::operation_canceled));
}

struct descriptor {
    int handle = -1;
    explicit descriptor(int opened) : handle{opened} {}
    ~descriptor() {
        if (handle >= 0) ::close(handle);
    }
    descriptor(const descriptor&) = delete;
    descriptor& operator=(const descriptor&) = delete;
};

// ARP for IPv4 over Ethernet.
constexpr std::size_t arp_size = 28;
constexpr std::size_t arp_operation = 6;
constexpr std::size_t arp_sender_mac = 8;
constexpr std::size_t arp_sender_address = 14;
constexpr std::size_t arp_target_address = 24;

std::array<std::byte, arp_size> arp_probe(uint64_t own_mac, uint32_t target) {
    std::array<std::byte, arp_size> packet{};
    gige::store16(&packet[0], ARPHRD_ETHER);
    gige::store16(&packet[2], ETHERTYPE_IP);
    packet[4] = std::byte{6};
    packet[5] = std::byte{4};
    gige::store16(&packet[arp_operation], ARPOP_REQUEST);
    gige::store16(&packet[arp_sender_mac], static_cast<uint16_t>(own_mac >> 32));
    gige::store32(&packet[arp_sender_mac + 2], static_cast<uint32_t>(own_mac));
    gige::store32(&packet[arp_target_address], target);
    return packet;
}

// The address that the packet's sender has, or is about to take; 0 for none.
uint32_t claimed_address(std::span<const std::byte> packet, uint64_t own_mac) {
    if (packet.size() < arp_size || gige::load16(&packet[2]) != ETHERTYPE_IP) return 0;
    const uint64_t sender =
        uint64_t{gige::load16(&packet[arp_sender_mac])} << 32 | gige::load32(&packet[arp_sender_mac + 2]);
    if (sender == own_mac) return 0;
    const uint32_t address = gige::load32(&packet[arp_sender_address]);
    if (address != 0 || gige::load16(&packet[arp_operation]) != ARPOP_REQUEST) return address;
    return gige::load32(&packet[arp_target_address]);
}

// An error when this process gets no packet socket, or the interface is no Ethernet.
std::expected<std::vector<uint32_t>, std::error_code>
ask_by_arp(const gige::network_interface& through, std::span<const uint32_t> candidates, const std::stop_token& stop) {
    if (through.mac == 0) return std::unexpected(std::make_error_code(std::errc::address_family_not_supported));
    const descriptor socket{::socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    if (socket.handle < 0) return std::unexpected(last_error());
    sockaddr_ll everybody{};
    everybody.sll_family = AF_PACKET;
    everybody.sll_protocol = htons(ETHERTYPE_ARP);
    everybody.sll_ifindex = static_cast<int>(through.index);
    if (::bind(socket.handle, reinterpret_cast<const sockaddr*>(&everybody), sizeof everybody) != 0)
        return std::unexpected(last_error());
    everybody.sll_halen = ETH_ALEN;
    std::memset(everybody.sll_addr, 0xFF, ETH_ALEN);

    std::vector<uint32_t> used;
    const std::array handles{socket.handle};
    std::array<std::byte, 128> packet;
    for (int round = 0; round < rounds; ++round) {
        for (const uint32_t target : candidates) {
            const auto probe = arp_probe(through.mac, target);
            if (::sendto(socket.handle, probe.data(), probe.size(), 0, reinterpret_cast<const sockaddr*>(&everybody),
                         sizeof everybody) < 0)
                return std::unexpected(last_error());
        }
        const auto until = clock::now() + round_time;
        while (clock::now() < until) { // however much ARP there is
            if (stop.stop_requested()) return canceled();
            if (gige::wait_readable(handles, std::min(until, clock::now() + stop_slice)) == 0) continue;
            const auto size = ::recv(socket.handle, packet.data(), packet.size(), 0);
            if (size <= 0) continue;
            const uint32_t address =
                claimed_address(std::span{packet}.first(static_cast<std::size_t>(size)), through.mac);
            if (std::ranges::find(candidates, address) != candidates.end() &&
                std::ranges::find(used, address) == used.end())
                used.push_back(address);
        }
    }
    return used;
}

bool has_neighbour(int socket, const std::string& interface, uint32_t address) {
    arpreq request{};
    sockaddr_in wanted{};
    wanted.sin_family = AF_INET;
    wanted.sin_addr.s_addr = htonl(address);
    std::memcpy(&request.arp_pa, &wanted, sizeof wanted);
    interface.copy(request.arp_dev, sizeof request.arp_dev - 1);
    return ::ioctl(socket, SIOCGARP, &request) == 0 && (request.arp_flags & ATF_COM) != 0;
}

std::expected<std::vector<uint32_t>, std::error_code> ask_by_kernel(const gige::network_interface& through,
                                                                    uint32_t local_address,
                                                                    std::span<const uint32_t> candidates,
                                                                    const std::stop_token& stop) {
    const auto socket = gige::udp_socket::open({0, 0});
    if (!socket) return std::unexpected(socket.error());
    std::array<std::byte, gige::gvcp::header_size> question;
    gige::gvcp::store_command(question.data(), {gige::gvcp::flag::acknowledge, gige::gvcp::command::discovery, 0, 1});
    for (const uint32_t target : candidates) {
        // What nobody answers for stays in the kernel's queue until it gives up. An address that could not be asked for
        // must not pass for one that nobody has.
        const auto error = socket->send({target, gige::gvcp::port}, question, {through.index, local_address});
        if (error && error != std::errc::host_unreachable) return std::unexpected(error);
    }
    for (auto left = rounds * round_time; left.count() > 0; left -= stop_slice) {
        if (stop.stop_requested()) return canceled();
        (void)gige::wait_readable({}, clock::now() + stop_slice);
    }
    std::vector<uint32_t> used;
    for (const uint32_t target : candidates)
        if (has_neighbour(socket->native(), through.name, target)) used.push_back(target);
    return used;
}

} // namespace

std::expected<std::vector<uint32_t>, std::error_code> addresses_in_use(const gige::network_interface& through,
                                                                       uint32_t local_address,
                                                                       std::span<const uint32_t> candidates,
                                                                       const std::stop_token& stop) {
    candidates = candidates.first(std::min(candidates.size(), most_probed));
    if (through.loopback) {
        std::vector<uint32_t> used;
        for (const uint32_t target : candidates)
            if (!gige::udp_socket::open({target, gige::gvcp::port})) used.push_back(target);
        return used;
    }
    auto used = ask_by_arp(through, candidates, stop);
    if (used || used.error() == std::errc::operation_canceled) return used;
    return ask_by_kernel(through, local_address, candidates, stop);
}

} // namespace gvcp_master
