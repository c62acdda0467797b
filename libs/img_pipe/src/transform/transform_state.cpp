#include "transform_state.h"

#include "../kernels/pwl_curve.h"
#include "fit_power_curve.h"

#include <img_pipe/profiler.h>

#include <algorithm>
#include <cmath>
#include <new>

namespace img_pipe {

namespace {

template <class T>
bool make_once(std::unique_ptr<T>& tables) {
    if (!tables) tables.reset(new (std::nothrow) T);
    return tables != nullptr;
}

} // namespace

float gamma_within(float value) { return std::isfinite(value) ? std::clamp(value, 0.01F, 100.0F) : 1.0F; }

const gamma_tables* lut_context::gamma(float given) {
    const float value = gamma_within(given);
    if (gamma_built && gamma_built->gamma_value == value) return gamma_built.get();
    const profile_scope scope("img_pipe::transform_state::get_lut_context");
    if (!make_once(gamma_built)) return nullptr;
    gamma_built->gamma_value = value;
    const double exponent = value;
    for (int i = 0; i < 256; ++i)
        gamma_built->bytes[i] = static_cast<std::uint8_t>(std::lround(255.0 * std::pow(i / 255.0, exponent)));
    for (int i = 0; i < 65536; ++i)
        gamma_built->words[i] = static_cast<std::uint16_t>(std::lround(65535.0 * std::pow(i / 65535.0, exponent)));
    has_curve = make_once(power_built) &&
                fit_power_curve(exponent, gamma_built->words, power_built->curve, power_built->entries);
    return gamma_built.get();
}

const tone_tables* lut_context::tone(std::int32_t contrast, std::int32_t brightness, float gamma) {
    if (tone_built && tone_built->contrast == contrast && tone_built->brightness == brightness &&
        tone_built->gamma_value == gamma)
        return tone_built.get();
    const profile_scope scope("img_pipe::transform_state::get_lut_context");
    if (!make_once(tone_built)) return nullptr;
    tone_built->contrast = contrast;
    tone_built->brightness = brightness;
    tone_built->gamma_value = gamma;
    const double factor = 1 + contrast / 256.0, offset = 0.5 - 0.5 * factor + brightness / 256.0;
    for (int i = 0; i < 65536; ++i) {
        const double x = std::clamp(i / 65535.0 * factor + offset, 0.0, 1.0);
        const double y = gamma == 1 ? x : std::pow(x, static_cast<double>(gamma));
        tone_built->words[i] = static_cast<std::uint16_t>(std::lround(65535.0 * y));
    }
    // As an 8-bit sample fares in 16 bits.
    for (int i = 0; i < 256; ++i) tone_built->bytes[i] = static_cast<std::uint8_t>(tone_built->words[i * 257] >> 8U);
    return tone_built.get();
}

const std::uint16_t* lut_context::companded_roots() {
    if (roots_built) return roots_built->data();
    if (!make_once(roots_built)) return nullptr;
    for (std::size_t i = 0; i < roots_built->size(); ++i)
        (*roots_built)[i] = static_cast<std::uint16_t>(
            std::lround(65535.0 * std::sqrt(static_cast<double>(linear_of(static_cast<std::int32_t>(i >> 4U))))));
    return roots_built->data();
}

tonemapping_state* lut_context::tonemapping() { return make_once(tonemapping_made) ? tonemapping_made.get() : nullptr; }

void transform_state::set_level(std::uint32_t wanted) {
    if (mask != 0 && asked == wanted) return;
    // Never above the processor; the plain level always serves.
    const std::uint32_t taken_mask = wanted == 0 ? cpu_mask() : (wanted & cpu_mask()) | cpu::c;
    table = get_filter_table(taken_mask); // may throw: then the level before stays
    asked = wanted;
    mask = taken_mask;
}

kernel_fn transform_state::find(kernel_slot slot, std::uint32_t destination, std::uint32_t source, std::int32_t width,
                                std::int32_t height) const {
    const img_descriptor to{destination, width, height, 0, 0, {}}, from{source, width, height, 0, 0, {}};
    return find_kernel(table, slot, to, from);
}

line_split transform_state::split(std::int32_t height) const {
    return threads.pool() == nullptr ? line_split{1, height} : split_lines(height, threads.threads());
}

bool transform_state::reserve(std::int32_t pieces, std::size_t bytes, std::size_t shared) {
    piece_bytes = (bytes + 63) / 64 * 64;
    shared_at = piece_bytes * static_cast<std::size_t>(pieces);
    const std::size_t need = shared_at + shared;
    if (need <= room) return true;
    room = 0;
    memory.reset(); // before more is taken
    memory.reset(new (std::nothrow) std::byte[need + 63]);
    if (!memory) return false;
    void* at = memory.get();
    std::size_t space = need + 63;
    base = static_cast<std::byte*>(std::align(64, need, at, space));
    room = need;
    ++taken;
    return true;
}

bool transform_state::tone_image(std::uint32_t format, const img_descriptor& source, img_descriptor& view) {
    const std::size_t need = image_size(format, source.width, source.height);
    if (need == 0) return false;
    if (need > tone_room) {
        tone_room = 0;
        tone_memory.reset(new (std::nothrow) std::uint8_t[need]);
        if (!tone_memory) return false;
        tone_room = need;
        ++taken;
    }
    view = make_view(tone_memory.get(), static_cast<std::uint32_t>(need), format, source.width, source.height);
    return true;
}

void transform_state::release_memory() {
    memory.reset();
    tone_memory.reset();
    tone_room = 0;
    base = nullptr;
    room = 0;
}

} // namespace img_pipe
