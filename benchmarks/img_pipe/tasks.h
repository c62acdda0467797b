// What the speed benchmark runs: conversions by this library's pipe, and the same by its peers.
#pragma once
#include <img_pipe/transform_pipe.h>

#include <cstdint>
#include <string>
#include <vector>

// One frame's work: `in` and `out` are lines without a gap. In place `out` is `in`.
struct frame_job {
    int width, height;
    std::uint8_t *in, *out;
};

struct task {
    const char* name;
    std::uint32_t from, to; // `to` 0: in place
    img_pipe::transform_params params = {};
    void (*opencv)(const frame_job&) = nullptr;
    void (*libyuv)(const frame_job&) = nullptr;
    // What this library is held to with its best level: of the copy's time, or of OpenCV's; 0: nothing.
    double to_copy = 0, to_opencv = 0;
};

// Names with equal beginnings belong together.
const std::vector<task>& all_tasks();

// Bytes of a frame of the format.
std::size_t frame_bytes(std::uint32_t format, int width, int height);
