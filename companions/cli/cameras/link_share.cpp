#include "link_share.h"

#include "../failure/failure.h"

#include <gige/ethernet.h>
#include <gige/gvsp.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace cli {

stream_cost cost_of(const stream_shape& shape) {
    stream_cost cost;
    cost.data_per_packet = gige::gvsp::payload_per_packet(shape.packet_size, shape.extended_ids);
    if (cost.data_per_packet == 0)
        throw failure(cause::feature, fmt::format("Packets of {} bytes hold no data.", shape.packet_size));
    constexpr uint64_t leader_and_trailer = 2;
    cost.packets = (shape.payload_size + cost.data_per_packet - 1) / cost.data_per_packet + leader_and_trailer;
    cost.wire_per_packet = gige::wire_bytes(shape.packet_size);
    cost.wire_per_frame = cost.packets * cost.wire_per_packet;
    cost.bytes_per_second = static_cast<double>(cost.wire_per_frame) * shape.frame_rate;
    return cost;
}

link_shares share_link(std::span<const link_user> users, double link, double usable) {
    link_shares shares;
    double at_once = 0, needed = 0;
    shares.fits = true;
    for (const link_user& each : users) {
        at_once += each.own_link;
        needed += each.needs;
        shares.fits = shares.fits && each.needs <= each.own_link;
        shares.bytes_per_second.push_back(each.own_link);
    }
    shares.fits = shares.fits && needed <= usable;
    shares.limited = at_once > link;
    if (!shares.limited) return shares;
    // Those whose own links carry less than their part leave the rest to the others, whose part grows: at most once for
    // each until nothing changes.
    std::vector<bool> capped(users.size());
    for (bool changed = true; changed;) {
        changed = false;
        double left = usable, wanted = 0;
        for (size_t i = 0; i < users.size(); ++i) {
            if (capped[i])
                left -= users[i].own_link;
            else
                wanted += users[i].needs;
        }
        for (size_t i = 0; i < users.size(); ++i) {
            if (capped[i]) continue;
            shares.bytes_per_second[i] = wanted > 0 ? left * users[i].needs / wanted : 0;
            if (shares.bytes_per_second[i] <= users[i].own_link) continue;
            shares.bytes_per_second[i] = users[i].own_link;
            capped[i] = changed = true;
        }
    }
    return shares;
}

std::optional<int64_t> number_range::at_most(double value) const {
    if (!(value >= static_cast<double>(min))) return std::nullopt;
    if (value >= static_cast<double>(max)) value = static_cast<double>(max);
    const auto whole = value >= static_cast<double>(INT64_MAX) ? INT64_MAX : static_cast<int64_t>(std::floor(value));
    return min + (whole - min) / increment * increment;
}

std::optional<int64_t> number_range::at_least(double value) const {
    if (!(value <= static_cast<double>(max)) || value >= static_cast<double>(INT64_MAX)) return std::nullopt;
    const auto whole = std::max(min, static_cast<int64_t>(std::ceil(value)));
    const int64_t taken = min + (whole - min + increment - 1) / increment * increment;
    return taken <= max ? std::optional{taken} : std::nullopt;
}

std::optional<int64_t> packet_delay(const stream_cost& cost, double share, double own_link, uint64_t ticks_per_second,
                                    const number_range& takes) {
    if (ticks_per_second == 0 || share <= 0) return std::nullopt;
    const auto bytes = static_cast<double>(cost.wire_per_packet);
    const double pause = std::max(0.0, bytes / share - bytes / own_link); // seconds
    // What is a whole number but for the precision of this division is not one more.
    return takes.at_least(pause * static_cast<double>(ticks_per_second) * (1 - 1e-12));
}

double rate_with_delay(const stream_cost& cost, double own_link, uint64_t ticks_per_second, int64_t ticks) {
    const auto bytes = static_cast<double>(cost.wire_per_packet);
    return bytes / (bytes / own_link + static_cast<double>(ticks) / static_cast<double>(ticks_per_second));
}

} // namespace cli
