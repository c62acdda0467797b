// A consumer in the test's process that knows what every byte of a frame must be.
#pragma once

#include "test_system.h"

#include <optional>

namespace test_support {

struct read_frame {
    uint64_t block_id = 0;
    uint64_t timestamp = 0;
    size_t width = 0;
    size_t height = 0;
    size_t filled = 0;    // as the library says
    size_t data_size = 0; // likewise
    uint32_t pixel_format = 0;
    bool incomplete = false;
    bool too_large = false;
    bool has_chunks = false;
    // As found in the memory, packet by packet: places that hold what they held when the buffer was queued, and places
    // that hold neither that nor this frame's bytes (never right).
    size_t missing_packets = 0;
    size_t foreign_packets = 0;
    size_t data_end = 0; // behind the last byte of this frame
};

class frame_reader {
public:
    // Announces and queues memory of its own. Size 0: the PayloadSize.
    frame_reader(open_camera& camera, size_t buffers, bool extended_ids, size_t buffer_size = 0);
    ~frame_reader();
    frame_reader(const frame_reader&) = delete;
    frame_reader& operator=(const frame_reader&) = delete;

    // A pause of the camera, as a busy machine causes, makes no frame incomplete. For streams that lose nothing.
    void allow_pauses();

    // The camera sends so many frames and stops by itself; 0: no end.
    void start(uint64_t frames);
    void stop();

    // The next frame, its buffer queued again; nothing within the time.
    [[nodiscard]] std::optional<read_frame> next(uint64_t timeout_ms);

    [[nodiscard]] uint64_t info(GenTL::STREAM_INFO_CMD command) const;
    [[nodiscard]] size_t size_info(GenTL::STREAM_INFO_CMD command) const;
    [[nodiscard]] cli::node_map& features(); // the stream's own
    // No byte behind the end of a buffer was touched.
    [[nodiscard]] bool margins_untouched() const;
    [[nodiscard]] int64_t packet_size() const noexcept { return packet_bytes; }

private:
    struct memory;
    void queue(memory& buffer);
    void compare(read_frame& frame, const memory& buffer);

    open_camera& from;
    bool extended;
    int64_t packet_bytes = 0;
    uint64_t last_number = 0;
    std::vector<std::unique_ptr<memory>> buffers;
    std::vector<std::byte> expected;
    std::unique_ptr<cli::node_map> stream_nodes;
};

} // namespace test_support
