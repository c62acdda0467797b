// Counters of this host as they are now: sockets, threads, processors' queues and cards.
#pragma once

#include "kernel_counters.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace cli {

[[nodiscard]] std::vector<udp_socket_row> read_udp_sockets();
[[nodiscard]] softnet_counts read_softnet();
[[nodiscard]] std::optional<uint64_t> read_receive_buffer_limit(); // net.core.rmem_max

// The thread of a process that receives streams: the library's by its name, else the one that ran most.
[[nodiscard]] std::optional<schedule_counts> read_receive_thread(int process);

// The interface that has this address; empty for none.
[[nodiscard]] std::string interface_of(uint32_t address);

struct card_counters {
    std::map<std::string, uint64_t> drops; // those that tell of loss, the driver's own with them
    std::optional<uint64_t> mtu, ring_size, ring_limit;
};
[[nodiscard]] card_counters read_card(const std::string& interface);

// A process that has this socket open; none that may be looked into: the user of the socket alone.
struct socket_owner {
    int process = 0; // 0: unknown
    std::string name;
    std::string user;
};
[[nodiscard]] socket_owner owner_of(const udp_socket_row& row);
[[nodiscard]] std::string user_name(uint32_t user);

} // namespace cli
