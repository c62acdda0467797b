// libaravis' stream receiver on a camera that is opened by address: no discovery leaves the host.
#pragma once

#include "bench_stream.h"

#include <chrono>
#include <memory>
#include <optional>

namespace bench {

class peer_stream {
public:
    // packet_socket: its packet-mmap reception, where the process may use it.
    peer_stream(const place& where, const stream_shape& shape, bool packet_socket, int buffers);
    ~peer_stream();
    void start();

    struct frame {
        uint64_t block_id = 0;
        bool whole = false;
    };
    // The next one that ended; its buffer goes back with the next call. None when none ends in time.
    [[nodiscard]] std::optional<frame> next(std::chrono::microseconds wait);

private:
    struct objects;
    const stream_shape& shape;
    std::unique_ptr<objects> peer;
};

} // namespace bench
