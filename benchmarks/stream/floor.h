// What every floor does with its datagrams: count them and, where wished, copy their payload.
#pragma once

#include "bench_stream.h"

#include <algorithm>
#include <cstring>

namespace bench {

// The payloads one behind the other into frames in turn. Leader and trailer count as a few bytes of picture: it makes
// no difference here.
class payload_copy {
public:
    static constexpr size_t header = 8;

    payload_copy(size_t frame_count, size_t frame_size) : frames(frame_count, std::vector<std::byte>(frame_size)) {}

    void take(const std::byte* datagram, size_t length, bool copy = true) {
        ++datagrams;
        if (length <= header) return;
        const size_t size = length - header;
        payload_bytes += size;
        if (!copy) return;
        if (at + size > frames[frame].size()) {
            frame = (frame + 1) % frames.size();
            at = 0;
        }
        std::memcpy(frames[frame].data() + at, datagram + header, size);
        at += size;
    }

    uint64_t datagrams = 0;
    uint64_t payload_bytes = 0;

private:
    std::vector<std::vector<std::byte>> frames;
    size_t frame = 0;
    size_t at = 0;
};

// A run of a floor: from the camera's start, by one who calls `read` after each read that brought something.
class floor_run {
public:
    floor_run(camera_control& camera, const stream_shape& stream, bool copies)
        : shape(stream), copy(copies), frames(frame_count, stream.payload_size()) {
        cpu = cpu_seconds();
        wakes_before = wakes();
        camera.start(shape);
    }
    [[nodiscard]] bool done() const { return frames.datagrams >= shape.datagrams_per_frame() * shape.frames; }
    [[nodiscard]] bool begun() const { return frames.datagrams != 0; }
    void take(const std::byte* datagram, size_t length) { frames.take(datagram, length, copy); }
    void read() {
        ++reads;
        last = wall_seconds();
        if (first == 0) first = last;
    }
    [[nodiscard]] reception seen() const {
        const uint64_t complete = frames.datagrams / shape.datagrams_per_frame();
        reception result;
        result.payload_bytes = frames.payload_bytes;
        result.datagrams = frames.datagrams;
        result.frames_complete = complete;
        result.frames_other = shape.frames - std::min<uint64_t>(complete, shape.frames);
        result.reads = reads;
        result.cpu_seconds = cpu_seconds() - cpu;
        result.wakes = wakes() - wakes_before;
        result.wall_seconds = last - first;
        return result;
    }

private:
    static constexpr size_t frame_count = 8;

    const stream_shape& shape;
    const bool copy;
    payload_copy frames;
    uint64_t reads = 0;
    double first = 0;
    double last = 0;
    double cpu = 0;
    uint64_t wakes_before = 0;
};

} // namespace bench
