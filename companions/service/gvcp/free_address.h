// An address for a camera that has none of its own in an interface's networks.
#pragma once

#include <gige/network.h>

#include <cstdint>
#include <expected>
#include <optional>
#include <span>
#include <stop_token>
#include <system_error>
#include <vector>

namespace gvcp_master {

struct camera_address {
    uint32_t address{};
    uint32_t mask{};
    uint32_t gateway{};       // 0: none in this network
    uint32_t local_address{}; // this host's, the one to talk to it from
};

// Addresses of a subnet in the order in which they are tried for the camera with this MAC: a camera is given the same
// one again where it can be. None of the interface's own, of its gateways, or `taken`.
[[nodiscard]] std::vector<uint32_t> address_candidates(const gige::network_interface& through, const gige::subnet& net,
                                                       uint64_t mac, std::span<const uint32_t> taken, std::size_t most);

// The first candidate that nobody answers for, in the subnet that holds `current`, then in the others in the
// interface's order. std::errc::address_not_available when there is none among the first 256 of each.
[[nodiscard]] std::expected<camera_address, std::error_code> find_free_address(const gige::network_interface& through,
                                                                               uint64_t mac, uint32_t current,
                                                                               std::span<const uint32_t> taken,
                                                                               const std::stop_token& stop);

} // namespace gvcp_master
