#include "peer_stream.h"

namespace bench {

reception receive_with_peer(const place& where, const stream_shape& shape, bool packet_socket) {
    using namespace std::chrono_literals;
    peer_stream peer{where, shape, packet_socket, 8};
    reception seen;
    double first = 0;
    double last = 0;
    const double cpu = cpu_seconds();
    const uint64_t wakes_before = wakes();
    peer.start();
    for (uint64_t ended = 0; ended < shape.frames; ++ended) {
        const auto frame = peer.next(ended == 0 ? 5s : 500ms);
        if (!frame) break;
        last = wall_seconds();
        if (first == 0) first = last;
        if (frame->whole) {
            ++seen.frames_complete;
            seen.payload_bytes += shape.payload_size();
        }
    }
    seen.cpu_seconds = cpu_seconds() - cpu;
    seen.wakes = wakes() - wakes_before;
    seen.wall_seconds = last - first;
    seen.frames_other = shape.frames - seen.frames_complete;
    seen.datagrams = seen.frames_complete * shape.datagrams_per_frame();
    return seen;
}

} // namespace bench
