// Counters at two times, and what happened between them.
#pragma once

#include "../posix/host_counters.h"
#include "loss_verdict.h"

#include <chrono>
#include <nlohmann/json.hpp>

namespace cli {

// The host's side of one stream. Thread-bound.
class loss_watch final {
public:
    // Where the camera sends to; `process` is that which receives, 0 when nobody knows.
    loss_watch(uint32_t address, uint16_t port, int process);

    // What happened since the last call, or the start, into the host's members of `into`.
    void take(loss_evidence& into);
    [[nodiscard]] bool sees_socket() const noexcept { return sees; }
    [[nodiscard]] uint64_t waiting_bytes() const noexcept { return waiting; }

private:
    struct sample {
        std::chrono::steady_clock::time_point at;
        std::optional<uint64_t> socket_drops;
        std::optional<schedule_counts> thread;
        softnet_counts queue;
        card_counters card;
    };
    [[nodiscard]] sample read();

    const uint32_t address;
    const uint16_t port;
    const int process;
    const std::string interface;
    uint64_t inode = 0, waiting = 0;
    bool sees = false;
    sample last;
};

[[nodiscard]] nlohmann::json to_json(const loss_evidence& seen);
[[nodiscard]] nlohmann::json to_json(const loss_verdict& verdict);

} // namespace cli
