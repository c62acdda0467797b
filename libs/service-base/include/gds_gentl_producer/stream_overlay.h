// What is written into the images of a stream: its state, row by row, and what the profiler found.
#pragma once

#include <gentl_producer/Buffer.h>
#include <img_pipe/format.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace gds_producer {

struct overlay_figures {
    std::string_view version;
    uint64_t packet_loss_frames = 0;
    uint64_t transform_queue_drops = 0;
    uint64_t underruns = 0;
    double frames_per_second = 0;
    uint64_t avg_transform_us = 0;
    bool automatic = false;            // an automatic function is on
    bool transformed = false;          // the transform is on
    std::string_view reception_status; // in the row of the frame
    std::string_view stream_status;    // a row of its own unless it is empty
};

// The buffer is the one whose memory `image` is. Nothing is drawn where the format has no integer samples.
void draw_overlay(const img_pipe::img_descriptor& image, const GenTL::Producer::Buffer& frame,
                  const overlay_figures& figures);

// Below the overlay's first four rows, one row each.
void draw_profile(const img_pipe::img_descriptor& image, std::span<const std::string> lines);

} // namespace gds_producer
