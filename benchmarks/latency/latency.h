// The parts of bench_latency: receivers that note when they had a frame whole.
#pragma once

#include "../stream/bench_stream.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

// By block id, nanoseconds of the steady clock; 0 for a frame that did not come, or not whole.
using arrivals = std::vector<int64_t>;

[[nodiscard]] inline int64_t steady_ns() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}
inline void note(arrivals& seen, uint64_t block_id, int64_t time) {
    if (block_id < seen.size()) seen[block_id] = time;
}

// Blocks in recvmmsg and does nothing with the datagrams but look for the trailer. With a hand-over the reader is a
// thread of its own, and frames have come when the one that waits for them on a condition variable runs; copied, each
// payload goes to its place in a frame. No library whose consumer asks for whole frames can do with less than both.
[[nodiscard]] arrivals frames_by_bare_reads(const place& where, const stream_shape& shape, bool copied,
                                            bool handed_over);
// A consumer of the library at `cti`, over the service that runs; the return of EventGetData.
[[nodiscard]] arrivals frames_by_library(const std::string& cti, const stream_shape& shape);
// The peer, opened by address; the return of arv_stream_timeout_pop_buffer.
[[nodiscard]] arrivals frames_by_peer(const place& where, const stream_shape& shape, bool packet_socket);

} // namespace bench
