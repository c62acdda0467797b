// The road of one image through the kernels. Strips of lines go to the threads; within a strip the work goes band by
// band, each band through all steps while it is in the cache. In place, each band works on copies of the original
// lines around it, so that neither the band before nor a neighbouring strip shows it changed lines.
#pragma once
#include "transform_state.h"

#include <img_pipe/kernel_params.h>

#include <initializer_list>

namespace img_pipe {

struct road_step {
    kernel_fn kernel = nullptr;
    const void* params = nullptr;
};

// Steps without a kernel fall away; if all do, lines are copied. Formats of the steps: source -> enter -> work ->
// adjust, sharpen -> work -> leave -> destination. Without `leave`, work is the destination's format.
struct road {
    std::uint32_t work = 0;
    road_step enter;
    bool enter_reads_around = false; // up to `demosaic_reach` lines above and below
    road_step adjust[2];             // in place
    road_step sharpen;               // reads up to `sharpen_reach` lines around
    road_step leave;
};

// Multiples of 4, which keep a mosaic's phase.
constexpr std::int32_t demosaic_reach = 8;
constexpr std::int32_t sharpen_reach = 4;

// Bytes that one piece needs for the kernels and the bands of any road between these formats.
std::size_t road_memory(std::uint32_t source, std::uint32_t work, std::int32_t width);

// The memory of every road between `source` and one of these formats, or of `shared` bytes where that is more: roads
// that run afterwards have it. False when it is out.
bool reserve_roads(transform_state& state, const img_descriptor& source, std::initializer_list<std::uint32_t> work,
                   std::size_t shared);

// In place when both views are the same image. False when memory is out; nothing is written then.
bool run_road(transform_state& state, const img_descriptor& destination, const img_descriptor& source,
              const road& road);

} // namespace img_pipe
