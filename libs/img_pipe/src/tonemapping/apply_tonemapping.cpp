#include "apply_tonemapping.h"

#include "../kernels/rows.h"
#include "../transform/road_builder.h"

#include <img_pipe/profiler.h>

#include <cmath>
#include <cstring>

namespace img_pipe {

namespace {

bool same_memory(const img_descriptor& a, const img_descriptor& b) {
    return a.plane_data[0].data == b.plane_data[0].data;
}

// The type that a source of the format is mapped to when it must not change itself.
std::uint32_t widened(std::uint32_t format) {
    const sample_layout layout = layout_of(format);
    const bool as_it_is = layout.pack == packing::plain8 || layout.pack == packing::none;
    if (as_it_is || format_description(format).is_float != 0) return format;
    static constexpr std::uint32_t wide[] = {fcc("BG16"), fcc("GB16"), fcc("BA16"), fcc("RG16")};
    return layout.mosaic == phase::grey ? fcc("Y16 ") : wide[static_cast<int>(layout.mosaic)];
}

// In place a strip needs the lines next to it as they were: two for each piece.
std::size_t halo_pitch(const img_descriptor& source) {
    return (static_cast<std::size_t>(line_stride(source.format, source.width)) + 63) / 64 * 64;
}

// All that the steps in place take, before the first of them writes: an image without its last ones would be neither
// what came nor what is wanted.
bool has_memory(transform_state& state, const img_descriptor& image, const corrections& c) {
    tonemapping_state* const tones = state.luts.tonemapping();
    const sample_layout layout = layout_of(image.format);
    if (tones == nullptr || !tones->table.reserve(layout.pack == packing::plain8)) return false;
    const bool grey = layout.mosaic == phase::grey;
    sample_params unused = neutral_samples;
    if (grey || c.each_sample()) {
        if (!add_tone(c, state.luts, unused)) return false;
    } else if (c.gamma && state.luts.gamma(c.gamma_value) == nullptr) {
        return false;
    }
    return reserve_roads(state, image,
                         {image.format, grey ? fcc("Y16 ") : fcc("RGB6"), grey ? image.format : fcc("BGR3")},
                         2 * halo_pitch(image) * static_cast<std::size_t>(state.split(image.height).pieces));
}

bool white_balance(transform_state& state, const img_descriptor& image, const img_descriptor& source,
                   const corrections& c) {
    const sample_params gains = mosaic_gains(c, source.format);
    road_builder way(state, image, source);
    way.enter(image.format == source.format ? kernel_slot::apply_whitebalance : kernel_slot::convert_lines,
              image.format, &gains);
    return way.run();
}

} // namespace

bool tone_mapping_is_due(const transform_params& params, const transform_scratch* scratch) {
    return params.tonemapping_enable && (scratch == nullptr || !scratch->second_pass);
}

bool functions::apply_tonemapping(transform_state& state, const img_descriptor& image, const img_descriptor& source,
                                  const tonemapping_factors& factors) {
    tonemapping_state* const tones = state.luts.tonemapping();
    const kernel_fn kernel =
        state.find(kernel_slot::apply_tonemapping, image.format, source.format, source.width, source.height);
    if (tones == nullptr || kernel == nullptr) return false;
    tones->table.build(factors.intensity, factors.global_brightness, factors.mean, factors.exponent);
    tonemapping_params params{factors.scale, factors.offset, nullptr, nullptr, nullptr};
    if (layout_of(source.format).pack == packing::plain8) {
        params.byte_table = tones->table.byte_table(factors.scale, factors.offset);
        if (params.byte_table == nullptr) return false;
    } else {
        params.adaptation = tones->table.adaptation();
        params.adaptation_scaled = tones->table.adaptation_scaled();
        if (params.adaptation == nullptr) return false;
    }
    const auto bytes = static_cast<std::size_t>(line_stride(source.format, source.width));
    const std::size_t pitch = halo_pitch(source);
    const line_split split = state.split(source.height);
    const bool in_place = same_memory(image, source);
    if (!state.reserve(split.pieces, kernel_scratch_bytes(source.width),
                       in_place ? 2 * pitch * static_cast<std::size_t>(split.pieces) : 0))
        return false;
    const auto halo_of = [&](std::int32_t piece) {
        return state.shared_memory() + 2 * pitch * static_cast<std::size_t>(piece);
    };
    const auto line = [&](std::int32_t y) {
        return source.plane_data[0].data + static_cast<std::ptrdiff_t>(source.plane_data[0].stride) * y;
    };
    for (std::int32_t i = 0; in_place && i < split.pieces; ++i) {
        const std::int32_t first = i * split.piece_lines, end = first + split.piece_lines;
        if (i > 0) std::memcpy(halo_of(i), line(first - 1), bytes);
        if (i + 1 < split.pieces) std::memcpy(halo_of(i) + pitch, line(end), bytes);
    }
    run_parallel(
        state.threads,
        [&](const img_descriptor& to, const img_descriptor& from, std::int32_t first, std::int32_t piece) {
            kernel({to, from, first, source.height, source.plane_data[0].data + source.data_size, &params,
                    state.piece_memory(piece), in_place ? halo_of(piece) : nullptr, in_place ? 1 : 0, pitch});
        },
        image, source);
    return true;
}

impl::tone_result impl::transform_helper::apply_tonemapping(transform_state& state, const img_descriptor& image,
                                                            const img_descriptor& source,
                                                            const transform_params& params,
                                                            transform_scratch* factors_out) {
    const profile_scope scope("img_pipe::impl::transform_helper::apply_tonemapping");
    tonemapping_state* const tones = state.luts.tonemapping();
    if (tones == nullptr) return tone_result::failed;
    tonemapping_factors factors{};
    if (params.tonemapping_fixed) {
        const tonemapping_stretch& given = params.tonemapping_factors;
        factors = {bounded_intensity(params.tonemapping_intensity),
                   bounded_global_brightness(params.tonemapping_global_brightness),
                   given.mean,
                   given.exponent,
                   given.scale,
                   given.offset};
        for (const float f : {given.scale, given.offset, given.exponent, given.mean})
            if (!std::isfinite(f)) return tone_result::unchanged;
    } else {
        factors = calc_tonemapping_factors(source, *tones, params.tonemapping_intensity,
                                           params.tonemapping_global_brightness);
        if (factors_out != nullptr) {
            factors_out->factors = {factors.scale, factors.offset, factors.exponent, factors.mean};
            factors_out->factors_set = true;
        }
    }
    if (factors.scale == 0 || factors.exponent == 0) return tone_result::unchanged;
    return functions::apply_tonemapping(state, image, source, factors) ? tone_result::mapped : tone_result::failed;
}

bool convert_tone_mapped(convert_function convert, transform_pipe& pipe, const img_descriptor& destination,
                         const img_descriptor& source, const transform_params& params, transform_scratch* scratch) {
    transform_state& state = *pipe.state();
    const corrections c(params);
    transform_params rest = params;
    rest.tonemapping_enable = false;
    const bool in_place = same_memory(destination, source);
    const std::uint32_t type = in_place ? source.format : widened(source.format);
    // Formats without a kernel, companded ones among them, are converted without.
    if (state.find(kernel_slot::apply_tonemapping, type, source.format, source.width, source.height) == nullptr)
        return convert(pipe, destination, source, rest, scratch);
    const bool balanced = c.white_balance && layout_of(source.format).mosaic != phase::grey;
    img_descriptor image = source;
    if (in_place ? !has_memory(state, source, c) : !state.tone_image(type, source, image)) return false;
    if (balanced && !white_balance(state, image, source, c)) return false;
    const impl::tone_result result =
        impl::transform_helper::apply_tonemapping(state, image, balanced ? image : source, params, scratch);
    if (result == impl::tone_result::failed) return false;
    if (balanced) rest.wb_enable = false;
    const bool changed = balanced || result == impl::tone_result::mapped;
    return convert(pipe, in_place ? image : destination, changed ? image : source, rest, scratch);
}

} // namespace img_pipe
