// Puts a road together from the kernels that the pipe's level has.
#pragma once
#include "parameters.h"
#include "road.h"

namespace img_pipe {

inline constexpr sample_params neutral_samples{{1, 1, 1, 1}, 0, nullptr, nullptr};

// Collects the steps of a road; a kernel that is missing spoils it.
class road_builder {
public:
    road_builder(transform_state& state_, const img_descriptor& destination, const img_descriptor& source)
        : state(state_), dst(destination), src(source) {
        way.work = dst.format;
    }

    void enter(kernel_slot slot, std::uint32_t work, const void* params, bool reads_around = false) {
        way.work = work;
        way.enter = {find(slot, work, src.format), params};
        way.enter_reads_around = reads_around;
    }
    // Lines of the source as they are.
    void enter_unchanged() { way.work = src.format; }
    void adjust(kernel_slot slot, const void* params) {
        way.adjust[way.adjust[0].kernel == nullptr ? 0 : 1] = {find(slot, way.work, way.work), params};
    }
    void sharpen(const corrections& c) {
        if (c.sharpen) way.sharpen = {find(kernel_slot::transform_sharpness_denoise, way.work, way.work), &c.sharpness};
    }
    void leave() {
        if (way.work != dst.format) way.leave = {find(kernel_slot::convert_lines, dst.format, way.work), nullptr};
    }
    bool run() { return complete && run_road(state, dst, src, way); }

private:
    kernel_fn find(kernel_slot slot, std::uint32_t destination, std::uint32_t source) {
        const kernel_fn found = state.find(slot, destination, source, src.width, src.height);
        complete = complete && found != nullptr;
        return found;
    }

    transform_state& state;
    const img_descriptor& dst;
    const img_descriptor& src;
    road way;
    bool complete = true;
};

} // namespace img_pipe
