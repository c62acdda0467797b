// The adaptation of each luminance, looked up for the pixels.
#include <img_pipe/tonemapping.h>

#include <algorithm>
#include <cmath>
#include <new>

namespace img_pipe {

namespace {

// A sum of a sample and an adaptation is never 0, and never so large that the quotient loses its sample.
constexpr double least_adaptation = 1e-20, most_adaptation = 1e20;

// Below this luminance each entry is computed, above it every 16th: a power is nearly a straight line over 1/64 of its
// argument, the error is below a thousandth of the adaptation for exponents up to 3.
constexpr std::int32_t dense = 1024, stride = 16;

} // namespace

void adaptation_table::build(float new_intensity, float new_global_brightness, float new_mean, float new_exponent) {
    if (intensity == new_intensity && global_brightness == new_global_brightness && mean == new_mean &&
        exponent == new_exponent)
        return;
    intensity = new_intensity;
    global_brightness = new_global_brightness;
    mean = new_mean;
    exponent = new_exponent;
    const double a = static_cast<double>(global_brightness);
    factor = std::exp(-static_cast<double>(intensity));
    share = (1 - a) / 65535;
    constant = a * static_cast<double>(mean);
    power = static_cast<double>(exponent);
    words_valid = bytes_valid = false;
}

float adaptation_table::at(std::int32_t k) const {
    const double value = std::pow(factor * (share * std::max(k, 1) + constant), power);
    return static_cast<float>(value > least_adaptation ? std::min(value, most_adaptation) : least_adaptation);
}

bool adaptation_table::reserve(bool as_bytes) {
    if (as_bytes && !byte_places) byte_places.reset(new (std::nothrow) bytes);
    if (!as_bytes && !words) words.reset(new (std::nothrow) word_tables);
    return as_bytes ? byte_places != nullptr : words != nullptr;
}

bool adaptation_table::make_words() {
    if (words_valid) return true;
    if (!reserve(false)) return false;
    float* const to = words->adaptation;
    for (std::int32_t k = 0; k < dense; ++k) to[k] = at(k);
    for (std::int32_t k = dense; k < places; k += stride) {
        const float first = at(k), step = (at(k + stride) - first) / stride;
        for (std::int32_t i = 0; i < stride; ++i) to[k + i] = first + step * static_cast<float>(i);
    }
    for (std::int32_t k = 0; k < places; ++k) words->scaled[k] = to[k] * 65535.0F;
    words_valid = true;
    return true;
}

const float* adaptation_table::adaptation() { return make_words() ? words->adaptation : nullptr; }
const float* adaptation_table::adaptation_scaled() { return make_words() ? words->scaled : nullptr; }

const std::uint8_t* adaptation_table::byte_table(float scale, float offset) {
    if (bytes_valid && bytes_scale == scale && bytes_offset == offset) return byte_places->table;
    if (!reserve(true)) return nullptr;
    for (std::int32_t l = 0; l < 256; ++l) {
        const float a = at(256 * l);
        std::uint8_t* const to = byte_places->table + 256 * l;
        for (std::int32_t v = 0; v < 256; ++v) {
            const float q = static_cast<float>(v) / 255.0F;
            const float r = (q / (q + a) * scale + offset) * 255.0F;
            to[v] = static_cast<std::uint8_t>(static_cast<std::int32_t>(r > 0.0F ? r < 255.0F ? r : 255.0F : 0.0F));
        }
    }
    bytes_scale = scale;
    bytes_offset = offset;
    bytes_valid = true;
    return byte_places->table;
}

} // namespace img_pipe
