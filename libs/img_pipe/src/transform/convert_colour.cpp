// Conversions between blue-green-red and YUV: matrix, gamma and sharpness on the way.
#include "conversions.h"
#include "road_builder.h"

namespace img_pipe {

namespace {

// Matrix and gamma on a band of blue-green-red, or of YU8p with the matrix in terms of its planes and gamma on luma.
// The records live as long as the road runs.
class colour_corrections {
public:
    colour_corrections(const corrections& c, lut_context& luts, bool planes)
        : matrix_on(c.white_balance || c.matrix || c.colour || c.tone || c.forced),
          gamma_on(c.gamma),
          matrix(planes ? in_planes(whole_matrix(c, true)) : whole_matrix(c, true)) {
        if (!gamma_on) return;
        const gamma_tables* tables = luts.gamma(c.gamma_value);
        complete = tables != nullptr;
        if (complete) gamma = {{1, 1, 1, 1}, 0, luts.gamma_words(), tables->bytes, luts.gamma_curve()};
    }
    bool any() const { return matrix_on || gamma_on; }
    void add_to(road_builder& way) const {
        if (matrix_on) way.adjust(kernel_slot::apply_saturation_hue_params, &matrix);
        if (gamma_on) way.adjust(kernel_slot::apply_brightness_contrast_params, &gamma);
    }
    bool complete = true;

private:
    bool matrix_on, gamma_on;
    matrix_params matrix;
    sample_params gamma = neutral_samples;
};

} // namespace

bool convert_bgr(transform_pipe& pipe, const img_descriptor& dst, const img_descriptor& src,
                 const transform_params& params, transform_scratch*) {
    transform_state& state = *pipe.state();
    const corrections c(params);
    const colour_corrections colours(c, state.luts, false);
    if (!colours.complete) return false;
    road_builder way(state, dst, src);
    if (!colours.any() && !c.sharpen && dst.format != src.format) {
        way.enter(kernel_slot::convert_lines, dst.format, nullptr);
        return way.run();
    }
    way.enter_unchanged();
    colours.add_to(way);
    way.sharpen(c);
    way.leave();
    return way.run();
}

bool convert_yuv_to_bgr(transform_pipe& pipe, const img_descriptor& dst, const img_descriptor& src,
                        const transform_params& params, transform_scratch*) {
    transform_state& state = *pipe.state();
    const corrections c(params);
    const colour_corrections colours(c, state.luts, false);
    if (!colours.complete) return false;
    road_builder way(state, dst, src);
    way.enter(kernel_slot::convert_lines, dst.format, nullptr);
    colours.add_to(way);
    way.sharpen(c);
    return way.run();
}

bool convert_yuv_by_planes(transform_pipe& pipe, const img_descriptor& dst, const img_descriptor& src,
                           const transform_params& params, transform_scratch*) {
    transform_state& state = *pipe.state();
    const corrections c(params);
    const colour_corrections planes(c, state.luts, true);
    if (!planes.complete) return false;
    road_builder way(state, dst, src);
    if (planes.any() || c.sharpen) {
        way.enter(kernel_slot::convert_lines, fcc("YU8p"), nullptr);
        planes.add_to(way);
        way.sharpen(c);
        way.leave();
    } else if (dst.format == src.format) {
        way.enter_unchanged();
    } else {
        way.enter(kernel_slot::convert_lines, dst.format, nullptr);
    }
    return way.run();
}

bool change_yuv(transform_pipe& pipe, const img_descriptor& image, const transform_params& params,
                transform_scratch* scratch) {
    const corrections c(params);
    return (!c.any() && !c.forced) || convert_yuv_by_planes(pipe, image, image, params, scratch);
}

// From any of blue-green-red or packed YUV.
bool convert_to_luma(transform_pipe& pipe, const img_descriptor& dst, const img_descriptor& src,
                     const transform_params& params, transform_scratch* scratch) {
    const bool yuv = format_description(src.format).is_yuv != 0;
    return (yuv ? convert_yuv_by_planes : convert_bgr)(pipe, dst, src, params, scratch);
}

} // namespace img_pipe
