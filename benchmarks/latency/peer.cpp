#include "latency.h"

#include "../stream/peer_stream.h"

namespace bench {

arrivals frames_by_peer(const place& where, const stream_shape& shape, bool packet_socket) {
    using namespace std::chrono_literals;
    peer_stream peer{where, shape, packet_socket, 16};
    peer.start();
    arrivals seen(shape.frames + 1);
    for (uint32_t ended = 0; ended < shape.frames; ++ended) {
        const auto frame = peer.next(ended == 0 ? 5s : 500ms);
        if (!frame) break;
        const int64_t now = steady_ns();
        if (frame->whole) note(seen, frame->block_id, now);
    }
    return seen;
}

} // namespace bench
