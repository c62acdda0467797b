// Whether somebody on an interface's network has an address already.
#pragma once

#include <gige/network.h>

#include <cstdint>
#include <expected>
#include <span>
#include <stop_token>
#include <system_error>
#include <vector>

namespace gvcp_master {

// Those of `candidates` that somebody answers for; at most most_probed. With CAP_NET_RAW they are asked by ARP probes,
// which leave no trace in anybody's tables. Without it the kernel asks on behalf of datagrams to them, from
// `local_address`, and its table of neighbours tells who answered; an entry of one who left a moment ago counts, too.
// On the loopback interface those count whose control port somebody of this host has bound.
// Takes up to a second; std::errc::operation_canceled when stopped.
inline constexpr std::size_t most_probed = 16;
[[nodiscard]] std::expected<std::vector<uint32_t>, std::error_code>
addresses_in_use(const gige::network_interface& through, uint32_t local_address, std::span<const uint32_t> candidates,
                 const std::stop_token& stop);

} // namespace gvcp_master
