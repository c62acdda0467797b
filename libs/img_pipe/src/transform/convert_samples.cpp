// Conversions from formats of one sample per pixel, monochrome and mosaic, and changes of them in place.
#include "../tonemapping/apply_tonemapping.h"
#include "conversions.h"
#include "road_builder.h"

namespace img_pipe {

bool convert_mono(transform_pipe& pipe, const img_descriptor& dst, const img_descriptor& src,
                  const transform_params& params, transform_scratch* scratch) {
    if (tone_mapping_is_due(params, scratch))
        return convert_tone_mapped(&convert_mono, pipe, dst, src, params, scratch);
    transform_state& state = *pipe.state();
    const corrections c(params);
    sample_params tone = neutral_samples;
    if (!add_tone(c, state.luts, tone)) return false;
    const bool by_parameters = c.tone || c.gamma || c.forced || params.route_flags[0] != 0 ||
                               params.route_flags[1] != 0 || params.route_flags[2] != 0;
    const sample_params* samples = by_parameters ? &tone : nullptr;
    road_builder way(state, dst, src);
    if (!c.sharpen) {
        way.enter(kernel_slot::convert_lines, dst.format, samples);
        return way.run();
    }
    const std::uint32_t work = src.format == fcc("Y800") ? fcc("Y800") : fcc("Y16 ");
    if (samples != nullptr || src.format != work)
        way.enter(kernel_slot::convert_lines, work, samples);
    else
        way.enter_unchanged();
    way.sharpen(c);
    way.leave();
    return way.run();
}

bool change_mono(transform_pipe& pipe, const img_descriptor& image, const transform_params& params,
                 transform_scratch* scratch) {
    if (tone_mapping_is_due(params, scratch))
        return convert_tone_mapped([](transform_pipe& p, const img_descriptor&, const img_descriptor& i,
                                      const transform_params& rest,
                                      transform_scratch* s) { return change_mono(p, i, rest, s); },
                                   pipe, image, image, params, scratch);
    const corrections c(params);
    if (!c.tone && !c.gamma && !c.sharpen) return true;
    return convert_mono(pipe, image, image, params, scratch);
}

bool convert_bayer(transform_pipe& pipe, const img_descriptor& dst, const img_descriptor& src,
                   const transform_params& params, transform_scratch* scratch) {
    if (tone_mapping_is_due(params, scratch))
        return convert_tone_mapped(&convert_bayer, pipe, dst, src, params, scratch);
    transform_state& state = *pipe.state();
    const corrections c(params);
    const bool further = c.colour || c.tone || c.gamma || c.sharpen || c.forced;
    demosaic_params demosaic{};
    demosaic.samples_on = c.white_balance || params.route_flags[1] != 0;
    demosaic.samples = mosaic_gains(c, src.format);
    if (!demosaic_colours(c, state.luts, false, demosaic)) return false;
    const kernel_slot slot = further || dst.format == fcc("YV12") ? kernel_slot::transform_by_matrix_to_dst
                                                                  : kernel_slot::transform_by_edge_to_dst;
    road_builder way(state, dst, src);
    const bool planar = dst.format == fcc("YV12") || dst.format == fcc("I420");
    way.enter(slot, planar && c.sharpen ? fcc("BGR3") : dst.format, &demosaic, true);
    way.sharpen(c);
    way.leave();
    return way.run();
}

bool change_bayer(transform_pipe& pipe, const img_descriptor& image, const transform_params& params,
                  transform_scratch* scratch) {
    if (tone_mapping_is_due(params, scratch))
        return convert_tone_mapped([](transform_pipe& p, const img_descriptor&, const img_descriptor& i,
                                      const transform_params& rest,
                                      transform_scratch* s) { return change_bayer(p, i, rest, s); },
                                   pipe, image, image, params, scratch);
    transform_state& state = *pipe.state();
    const corrections c(params);
    if (!c.any() && !c.forced) return true;
    demosaic_params demosaic{};
    demosaic.samples_on = c.white_balance;
    demosaic.samples = mosaic_gains(c, image.format);
    if (c.each_sample() && !add_tone(c, state.luts, demosaic.samples)) return false;
    road_builder way(state, image, image);
    if (c.each_sample() && !c.forced) {
        way.enter(kernel_slot::apply_whitebalance, image.format, &demosaic.samples);
        return way.run();
    }
    if (c.each_sample()) {
        // A demosaic keeps each site's own sample, so its way there and back is that of the sample alone.
        demosaic.samples_on = true;
    } else if (!demosaic_colours(c, state.luts, false, demosaic)) {
        return false;
    }
    const bool bytes = format_description(image.format).bits_per_pixel == 8;
    way.enter(kernel_slot::transform_by_matrix_to_dst, bytes ? fcc("BGR3") : fcc("RGB6"), &demosaic, true);
    way.sharpen(c);
    way.leave();
    return way.run();
}

bool repack_bayer(transform_pipe& pipe, const img_descriptor& dst, const img_descriptor& src,
                  const transform_params& params, transform_scratch*) {
    const corrections c(params);
    const sample_params gains = mosaic_gains(c, src.format);
    road_builder way(*pipe.state(), dst, src);
    way.enter(kernel_slot::convert_lines, dst.format, c.white_balance ? &gains : nullptr);
    return way.run();
}

} // namespace img_pipe
