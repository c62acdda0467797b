// Whether an IPv4 address can be a camera's.
#pragma once

#include <cstdint>

namespace gige {

// What is wrong with an address that a camera is to have, as a clause such as "it is a multicast address"; null when it
// is that of one host in its network. Host byte order. A network of one or two hosts has no addresses set aside.
[[nodiscard]] constexpr const char* host_address_problem(uint32_t address, uint32_t mask) noexcept {
    if (address == 0xFFFFFFFF) return "it is the broadcast address";
    if (address >> 28 == 0xE) return "it is a multicast address";
    if (address >> 28 == 0xF || address >> 24 == 0) return "it is no host's address";
    const uint32_t host_bits = ~mask;
    if ((host_bits & (host_bits + 1)) != 0) return "its mask has gaps";
    if (host_bits < 2) return nullptr;
    if ((address & host_bits) == 0) return "it is the address of its network";
    if ((address & host_bits) == host_bits) return "it is the broadcast address of its network";
    return nullptr;
}

} // namespace gige
