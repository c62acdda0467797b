// Cells of four polarization angles, to the same lines or to a pixel for each cell.
#include "conversions.h"
#include "road_builder.h"

namespace img_pipe {

bool convert_polarization(transform_pipe& pipe, const img_descriptor& dst, const img_descriptor& src,
                          const transform_params&, transform_scratch*) {
    transform_state& state = *pipe.state();
    if (dst.height == src.height) {
        road_builder way(state, dst, src);
        way.enter(kernel_slot::convert_lines, dst.format, nullptr);
        return way.run();
    }
    // A pixel for each cell: strips of both images have different lines, so the image goes in one piece.
    const kernel_fn kernel = state.find(kernel_slot::convert_lines, dst.format, src.format, src.width, src.height);
    if (kernel == nullptr || !state.reserve(1, kernel_scratch_bytes(src.width), 0)) return false;
    kernel({dst, src, 0, src.height, src.plane_data[0].data + src.data_size, nullptr, state.piece_memory(0), nullptr, 0,
            0});
    return true;
}

} // namespace img_pipe
