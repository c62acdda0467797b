#include <gige/network.h>

#include "last_error.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netpacket/packet.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <memory>
#include <sstream>

namespace gige {

namespace {

uint32_t address_of(const sockaddr* from) {
    return from == nullptr ? 0 : ntohl(reinterpret_cast<const sockaddr_in*>(from)->sin_addr.s_addr);
}

// Where there is no such table, there are no gateways.
std::error_code add_gateways(std::vector<network_interface>& interfaces) {
    std::ifstream routes{"/proc/thread-self/net/route"}; // of the network this thread sees
    if (!routes && (errno == EMFILE || errno == ENFILE || errno == ENOMEM)) return last_error();
    std::string line;
    std::getline(routes, line); // headings
    while (std::getline(routes, line)) {
        std::istringstream fields{line};
        std::string name;
        uint32_t destination = 0;
        uint32_t gateway = 0;
        if (!(fields >> name >> std::hex >> destination >> gateway) || destination != 0 || gateway == 0) continue;
        const auto found = std::ranges::find(interfaces, name, &network_interface::name);
        if (found != interfaces.end()) found->gateways.push_back(ntohl(gateway));
    }
    return {};
}

} // namespace

std::expected<std::vector<network_interface>, std::error_code> enumerate_interfaces() {
    ifaddrs* raw = nullptr;
    if (::getifaddrs(&raw) != 0) return std::unexpected(last_error());
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> list{raw, &::freeifaddrs};

    std::vector<network_interface> interfaces;
    for (const ifaddrs* entry = raw; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET || !(entry->ifa_flags & IFF_UP))
            continue;
        // A label such as "eth0:1" is a further address of "eth0".
        std::string name = entry->ifa_name;
        name.erase(std::min(name.find(':'), name.size()));
        auto found = std::ranges::find(interfaces, name, &network_interface::name);
        if (found == interfaces.end()) {
            network_interface added;
            added.name = name;
            added.index = ::if_nametoindex(name.c_str());
            if (added.index == 0) {
                if (errno == ENODEV || errno == ENXIO) continue; // gone since
                return std::unexpected(last_error());
            }
            added.loopback = (entry->ifa_flags & IFF_LOOPBACK) != 0;
            found = interfaces.insert(interfaces.end(), std::move(added));
        }
        found->subnets.push_back({address_of(entry->ifa_addr), address_of(entry->ifa_netmask)});
    }
    for (const ifaddrs* entry = raw; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_PACKET) continue;
        const auto found = std::ranges::find(interfaces, std::string{entry->ifa_name}, &network_interface::name);
        if (found == interfaces.end()) continue;
        const auto* link = reinterpret_cast<const sockaddr_ll*>(entry->ifa_addr);
        if (link->sll_halen != 6) continue;
        for (int i = 0; i < 6; ++i) found->mac = found->mac << 8 | link->sll_addr[i];
    }
    if (const auto error = add_gateways(interfaces)) return std::unexpected(error);
    return interfaces;
}

} // namespace gige
