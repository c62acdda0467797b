// How cameras share one link: the arithmetic, which knows no camera.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace cli {

// One camera's stream.
struct stream_shape {
    uint64_t payload_size = 0; // bytes of a frame
    double frame_rate = 0;     // per second
    uint64_t packet_size = 0;  // bytes with IP, UDP and stream header
    bool extended_ids = false;
};

struct stream_cost {
    uint64_t data_per_packet = 0; // bytes
    uint64_t packets = 0;         // of a frame, leader and trailer among them
    uint64_t wire_per_packet = 0; // bytes of the link
    uint64_t wire_per_frame = 0;  // all packets counted as full ones: paced, each takes a full one's time
    double bytes_per_second = 0;  // of the link
};
// Throws failure(cause::feature) for a packet size that holds no data.
[[nodiscard]] stream_cost cost_of(const stream_shape& shape);

struct link_user {
    double needs = 0;    // bytes per second
    double own_link = 0; // of the camera, bytes per second
};
struct link_shares {
    bool fits = false;   // everybody can have what it needs
    bool limited = true; // false: all cameras together cannot fill the link, so none needs a limit
    std::vector<double> bytes_per_second;
};
// Everybody gets the same multiple of its need, none more than its own link carries, all together `usable` at most of
// the bytes per second that the link carries.
[[nodiscard]] link_shares share_link(std::span<const link_user> users, double link, double usable);

// Values that a feature takes.
struct number_range {
    int64_t min = 0, max = INT64_MAX, increment = 1;
    [[nodiscard]] std::optional<int64_t> at_most(double value) const;  // nothing below the smallest
    [[nodiscard]] std::optional<int64_t> at_least(double value) const; // nothing above the largest
};

// The shortest pause between packets, in ticks of the camera's clock, with which it sends no more than its share.
[[nodiscard]] std::optional<int64_t> packet_delay(const stream_cost& cost, double share, double own_link,
                                                  uint64_t ticks_per_second, const number_range& takes);
// What it sends at most with that.
[[nodiscard]] double rate_with_delay(const stream_cost& cost, double own_link, uint64_t ticks_per_second,
                                     int64_t ticks);

} // namespace cli
