// What the kernel writes down about received datagrams, taken from its texts.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

// A line of /proc/net/udp.
struct udp_socket_row {
    uint32_t address = 0; // of this host, 0: any
    uint16_t port = 0;
    uint64_t waiting = 0; // bytes of memory that datagrams hold which nobody has read yet
    uint32_t user = 0;
    uint64_t inode = 0;
    uint64_t drops = 0; // datagrams that found no room, since the socket was made
};
// Lines that are none are left out.
[[nodiscard]] std::vector<udp_socket_row> parse_udp_sockets(std::string_view text);
// The one that datagrams to this address and port come to.
[[nodiscard]] const udp_socket_row* find_socket(const std::vector<udp_socket_row>& rows, uint32_t address,
                                                uint16_t port);

// /proc/net/softnet_stat, all processors together.
struct softnet_counts {
    uint64_t processed = 0;
    uint64_t dropped = 0;  // the queue between card and protocols was full
    uint64_t squeezed = 0; // a round of the kernel's ended with work left
};
[[nodiscard]] softnet_counts parse_softnet(std::string_view text);

// /proc/.../schedstat of a thread, nanoseconds.
struct schedule_counts {
    uint64_t ran = 0;
    uint64_t waited = 0; // for a processor, though it could have run
};
[[nodiscard]] std::optional<schedule_counts> parse_schedstat(std::string_view text);

// A counter that tells of packets which came to the card and no further.
[[nodiscard]] bool tells_of_loss(std::string_view counter_name);

} // namespace cli
