// Companded and polarisation images.
#include "conversions.h"
#include "road_builder.h"

namespace img_pipe {

bool convert_pwl(transform_pipe& pipe, const img_descriptor& dst, const img_descriptor& src, const transform_params&,
                 transform_scratch*) {
    road_builder way(*pipe.state(), dst, src);
    way.enter(kernel_slot::convert_lines, dst.format, nullptr);
    return way.run();
}

bool convert_polarization(transform_pipe& pipe, const img_descriptor& dst, const img_descriptor& src,
                          const transform_params&, transform_scratch*) {
    road_builder way(*pipe.state(), dst, src);
    way.enter(kernel_slot::convert_lines, dst.format, nullptr);
    return way.run();
}

} // namespace img_pipe
