// Companded images.
#include "conversions.h"
#include "road_builder.h"

#include <cmath>

namespace img_pipe {

// A picture to look at: the mosaic's codes become the square root of their linear values, and that is demosaiced.
bool convert_pwl_to_colours(transform_pipe& pipe, const img_descriptor& dst, const img_descriptor& src,
                            const transform_params& params, transform_scratch*) {
    transform_state& state = *pipe.state();
    corrections c(params);
    for (float& gain : c.gain) gain = std::sqrt(gain); // they are of linear values; those of the first green count
    const std::uint16_t* curve = state.luts.companded_roots();
    if (curve == nullptr) return false;
    demosaic_params demosaic{};
    demosaic.samples_on = true;
    demosaic.samples = {{1, 1, 1, 1}, 0, curve, nullptr};
    if (!demosaic_colours(c, state.luts, true, demosaic)) return false;
    road_builder way(state, dst, src);
    way.enter(kernel_slot::transform_by_matrix_to_dst, dst.format, &demosaic, true);
    way.sharpen(c);
    way.leave();
    return way.run();
}

} // namespace img_pipe
