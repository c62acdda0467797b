#include "free_address.h"

#include "address_probe.h"

#include <algorithm>

namespace gvcp_master {

namespace {

constexpr std::size_t most_candidates = 256; // of one subnet; each sixteen of them take up to a second

} // namespace

std::vector<uint32_t> address_candidates(const gige::network_interface& through, const gige::subnet& net, uint64_t mac,
                                         std::span<const uint32_t> taken, std::size_t most) {
    const uint32_t last = ~net.mask; // the broadcast address's host part
    // A network of one or two hosts has no room; a mask with gaps has no order.
    if (last < 3 || (last & (last + 1)) != 0) return {};
    const uint32_t hosts = last - 1;
    const auto start = static_cast<uint32_t>(mac % hosts);
    std::vector<uint32_t> list;
    for (uint32_t i = 0; i < hosts && i < most + taken.size() + 64 && list.size() < most; ++i) {
        const uint32_t address = (net.address & net.mask) | (1 + static_cast<uint32_t>((uint64_t{start} + i) % hosts));
        const auto is_it = [&](uint32_t other) { return other == address; };
        if (std::ranges::any_of(through.subnets, is_it, &gige::subnet::address)) continue;
        if (std::ranges::any_of(through.gateways, is_it) || std::ranges::any_of(taken, is_it)) continue;
        list.push_back(address);
    }
    return list;
}

std::expected<camera_address, std::error_code> find_free_address(const gige::network_interface& through, uint64_t mac,
                                                                 uint32_t current, std::span<const uint32_t> taken,
                                                                 const std::stop_token& stop) {
    auto subnets = through.subnets;
    std::ranges::stable_partition(subnets, [&](const gige::subnet& net) { return net.contains(current); });
    for (const auto& net : subnets) {
        const auto candidates = address_candidates(through, net, mac, taken, most_candidates);
        for (std::span<const uint32_t> rest = candidates; !rest.empty();) {
            const auto some = rest.first(std::min(rest.size(), most_probed));
            rest = rest.subspan(some.size());
            const auto used = addresses_in_use(through, net.address, some, stop);
            if (!used) return std::unexpected(used.error());
            const auto free = std::ranges::find_if(
                some, [&](uint32_t each) { return std::ranges::find(*used, each) == used->end(); });
            if (free == some.end()) continue;
            const auto way_out =
                std::ranges::find_if(through.gateways, [&](uint32_t each) { return net.contains(each); });
            return camera_address{*free, net.mask, way_out != through.gateways.end() ? *way_out : 0, net.address};
        }
    }
    return std::unexpected(std::make_error_code(std::errc::address_not_available));
}

} // namespace gvcp_master
