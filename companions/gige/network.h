// The host's IPv4 network interfaces.
#pragma once

#include <cstdint>
#include <expected>
#include <string>
#include <system_error>
#include <vector>

namespace gige {

struct subnet {
    uint32_t address{};
    uint32_t mask{};
    friend bool operator==(const subnet&, const subnet&) = default;
    [[nodiscard]] uint32_t broadcast() const noexcept { return address | ~mask; }
    [[nodiscard]] bool contains(uint32_t other) const noexcept { return ((address ^ other) & mask) == 0; }
};

struct network_interface {
    std::string name;
    unsigned index{};
    uint64_t mac{}; // low 48 bits
    bool loopback{};
    std::vector<subnet> subnets;
    std::vector<uint32_t> gateways;
    friend bool operator==(const network_interface&, const network_interface&) = default;
};

// Interfaces that are up and have an IPv4 address, in the system's order. An error when the system gives no list for
// lack of descriptors or memory, which says nothing about the interfaces.
[[nodiscard]] std::expected<std::vector<network_interface>, std::error_code> enumerate_interfaces();

} // namespace gige
