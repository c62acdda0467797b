// From any packing of samples to any other, line by line through a line buffer in the cache, corrected on the way. The
// level's line functions come as `Rows`: load, store, correct. In place (source and destination the same view) is fine.
#pragma once
#include "plain/correct_rows.h"
#include "plain/sample_rows.h"

namespace img_pipe {
namespace {

// One past what line `y` of the strip may write: a line that ends inside a byte leaves that byte to the next one.
[[maybe_unused]] const std::uint8_t* line_end(const img_descriptor& view, std::int32_t y, std::int32_t bytes) {
    return view.plane_data[0].data + static_cast<std::ptrdiff_t>(view.plane_data[0].stride) * y + bytes;
}

[[maybe_unused]] std::int32_t line_bytes(sample_layout layout, std::int32_t width) {
    std::int64_t bits = 12;
    if (layout.pack == packing::plain8) bits = 8;
    if (layout.pack == packing::plain16) bits = 16;
    if (layout.pack == packing::p10 || layout.pack == packing::mipi10) bits = 10;
    return static_cast<std::int32_t>(bits * width / 8);
}

[[maybe_unused]] std::uint8_t* line_of(const img_descriptor& view, std::int32_t y, int plane = 0) {
    return view.plane_data[plane].data + static_cast<std::ptrdiff_t>(view.plane_data[plane].stride) * y;
}

template <class Rows>
void sample_lines(const kernel_call& call) {
    const sample_layout in = layout_of(call.src.format), out = layout_of(call.dst.format);
    const auto* samples = static_cast<const sample_params*>(call.params);
    const bool in_place = call.src.plane_data[0].data == call.dst.plane_data[0].data;
    const std::int32_t width = call.src.width;
    const std::int32_t in_bytes = line_bytes(in, width), out_bytes = line_bytes(out, width);
    std::byte* at = call.scratch;
    std::uint16_t* line = take_ring(at, width, 1).line(0);
    for (std::int32_t y = 0; y < call.src.height; ++y) {
        const std::uint8_t* end = in_place ? line_end(call.src, y, in_bytes) : call.data_end;
        Rows::load(in, line_of(call.src, y), end, width, line);
        if (samples != nullptr) Rows::correct(*samples, call.first_line + y, width, line);
        Rows::store(out, line_of(call.dst, y), line_end(call.dst, y, out_bytes), width, line);
    }
}

template <class Rows>
kernel_fn find_sample_lines_of(std::uint32_t destination, std::uint32_t source) {
    const sample_layout in = layout_of(source), out = layout_of(destination);
    return in.pack == packing::none || out.pack == packing::none ? nullptr : &sample_lines<Rows>;
}

} // namespace
} // namespace img_pipe
