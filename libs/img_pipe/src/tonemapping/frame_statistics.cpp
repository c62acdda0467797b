// What tone mapping measures on a frame: luminances of 2 x 2 cells on a grid, their mean, and the range of the result.
#include "../kernels/plain/sample_rows.h"

#include <img_pipe/profiler.h>
#include <img_pipe/tonemapping.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace img_pipe {

namespace {

// The logarithm of i / 65535, a little above 0 so that black has one.
struct log_table {
    log_table() {
        for (std::int32_t i = 0; i < 65536; ++i) values[i] = static_cast<float>(std::log(i / 65535.0 + 2.3e-5));
    }
    float values[65536];
};
const log_table& logarithms() {
    static const log_table table;
    return table;
}

// Readers give the sample at (x, y) in counts of `full`.
struct byte_reader {
    static constexpr double full = 255;
    const std::uint8_t* base;
    std::ptrdiff_t stride;
    std::int32_t operator()(std::int32_t x, std::int32_t y) const { return base[y * stride + x]; }
};
struct word_reader {
    static constexpr double full = 65535;
    const std::uint8_t* base;
    std::ptrdiff_t stride;
    int shift;
    std::int32_t operator()(std::int32_t x, std::int32_t y) const {
        std::uint16_t v = 0;
        std::memcpy(&v, base + y * stride + 2 * static_cast<std::ptrdiff_t>(x), 2);
        return static_cast<std::uint16_t>(v << shift);
    }
};
struct packed_reader {
    static constexpr double full = 65535;
    const std::uint8_t* base;
    std::ptrdiff_t stride, line_bytes;
    sample_layout layout;
    std::int32_t operator()(std::int32_t x, std::int32_t y) const {
        const std::uint8_t* line = base + y * stride;
        const std::ptrdiff_t pair = static_cast<std::ptrdiff_t>(x / 2) * 3;
        if (group_of(layout.pack) != 2 || pair + 3 > line_bytes)
            return load_sample(layout, line, line + line_bytes, static_cast<std::size_t>(x));
        const std::uint8_t* const p = line + pair;
        const bool second = (x & 1) != 0;
        if (layout.pack == packing::p12) return second ? p[2] << 8 | (p[1] & 0xF0) : (p[1] & 15) << 12 | p[0] << 4;
        const bool between = layout.pack == packing::packed12; // of the high bytes stand the low bits
        const int high = second ? p[between ? 2 : 1] : p[0], low = p[between ? 1 : 2];
        return high << 8 | (second ? low & 0xF0 : low << 4 & 0xF0);
    }
};
struct float_reader {
    static constexpr double full = 1;
    const std::uint8_t* base;
    std::ptrdiff_t stride;
    double operator()(std::int32_t x, std::int32_t y) const {
        float v = 0;
        std::memcpy(&v, base + y * stride + 4 * static_cast<std::ptrdiff_t>(x), 4);
        return v > 0 ? static_cast<double>(v) : 0; // no number counts as 0
    }
};

bool green_first(phase mosaic) { return mosaic == phase::gb || mosaic == phase::gr; }

// A mosaic's samples on the 2 x 2 cell at (x, y): one each of red, green and blue, or all four where they are floats.
template <class Reader>
struct cells {
    const Reader& at;
    phase mosaic;
    static constexpr bool four = std::is_same_v<Reader, float_reader>;
    using sum_type = decltype(at(0, 0));

    [[nodiscard]] std::int32_t samples() const { return mosaic == phase::grey ? 1 : four ? 4 : 3; }
    [[nodiscard]] sum_type sum(std::int32_t x, std::int32_t y) const {
        if (mosaic == phase::grey) return at(x, y);
        if constexpr (four) return at(x, y) + at(x + 1, y) + at(x, y + 1) + at(x + 1, y + 1);
        const bool green = green_first(mosaic) != (((x ^ y) & 1) != 0);
        return at(x, y) + at(x + 1, y) + at(green ? x : x + 1, y + 1);
    }
};

template <class Sum>
std::int32_t luminance_index(Sum sum, double most) {
    if constexpr (std::is_same_v<Sum, double>)
        return static_cast<std::int32_t>(std::min(sum / most, 1.0) * 65535);
    else // 65535 is a multiple of 255, so the quotient is exact
        return static_cast<std::int32_t>(static_cast<std::int64_t>(sum) * 65535 / static_cast<std::int64_t>(most));
}

template <class Reader>
frame_statistics statistics_of(const Reader& reader, const img_descriptor& image, phase mosaic) {
    const cells<Reader> cell{reader, mosaic};
    const double most = 2 * cell.samples() * Reader::full;
    const float* const logarithm = logarithms().values;
    double low = std::numeric_limits<double>::infinity(), high = 0, total = 0, log_total = 0;
    std::int64_t count = 0;
    for (std::int32_t y = 2; y < image.height - 1; y += 8)
        for (std::int32_t x = 2; x < image.width - 2; x += 8) {
            const auto sum = cell.sum(x, y) + cell.sum(x + 1, y);
            const double v = sum;
            low = std::min(low, v);
            high = std::max(high, v);
            total += v;
            log_total += static_cast<double>(logarithm[luminance_index(sum, most)]);
            ++count;
        }
    low /= most;
    high /= most;
    if (count == 0 || !(high - low >= 0.0001) || !std::isfinite(high)) return {0, 0};
    const auto pixels = static_cast<double>(count);
    const double log_mean = std::exp(log_total / pixels), span = std::log(high) - std::log(low);
    // The first form compares a logarithm with a mean that is none; it holds for frames brighter than white alone.
    double k = (std::log(high) - log_mean) / span;
    if (k < 0) k = (std::log(high) - std::log(log_mean)) / span;
    const double exponent = k < 0 ? 0.3 : 0.3 + 0.7 * std::pow(k, 1.4);
    return {static_cast<float>(total / most / pixels), static_cast<float>(exponent)};
}

struct output_range {
    float low = 1e6F, high = -1e6F;
    void take(double sample, float adaptation) {
        const auto p = static_cast<float>(sample), r = p / (p + adaptation);
        low = std::min(low, r);
        high = std::max(high, r);
    }
};

template <class Reader, class Function>
void for_each_sample(const Reader& reader, const img_descriptor& image, phase mosaic, const Function& f) {
    const cells<Reader> cell{reader, mosaic};
    for (std::int32_t y = 0; y < image.height - 1; y += 8)
        for (std::int32_t x = 0; x < image.width - 2; x += 8) f(reader(x, y), cell.sum(x, y));
}

template <class Reader>
bool range_of(const Reader& reader, const img_descriptor& image, phase mosaic, adaptation_table& table,
              output_range& range) {
    const double most = cells<Reader>{reader, mosaic}.samples() * Reader::full;
    const float* const adaptation = table.adaptation();
    if (adaptation == nullptr) return false;
    for_each_sample(reader, image, mosaic, [&](auto sample, auto sum) {
        range.take(sample / Reader::full, adaptation[luminance_index(sum, most)]);
    });
    return true;
}

// Bytes have few luminances: the adaptation is needed for those alone, and the result rises with the sample.
bool range_of(const byte_reader& reader, const img_descriptor& image, phase mosaic, adaptation_table& table,
              output_range& range) {
    constexpr std::int32_t sums = 3 * 255 + 1;
    const double most = cells<byte_reader>{reader, mosaic}.samples() * byte_reader::full;
    struct {
        std::int16_t low = 256, high = -1;
    } seen[sums];
    for_each_sample(reader, image, mosaic, [&](std::int32_t sample, std::int32_t sum) {
        seen[sum].low = std::min(seen[sum].low, static_cast<std::int16_t>(sample));
        seen[sum].high = std::max(seen[sum].high, static_cast<std::int16_t>(sample));
    });
    for (std::int32_t sum = 0; sum < sums; ++sum) {
        if (seen[sum].high < 0) continue;
        const float adaptation = table.at(luminance_index(sum, most));
        range.take(seen[sum].low / byte_reader::full, adaptation);
        range.take(seen[sum].high / byte_reader::full, adaptation);
    }
    return true;
}

phase float_phase(std::uint32_t id, bool& is_float) {
    static constexpr std::uint32_t ids[] = {fcc("BGf0"), fcc("GBf0"), fcc("BAf0"), fcc("RGf0")};
    const auto* found = std::ranges::find(ids, id);
    is_float = found != std::end(ids) || id == fcc("MONf");
    return found == std::end(ids) ? phase::grey : static_cast<phase>(found - ids);
}

template <class Function>
auto with_reader(const img_descriptor& image, const Function& f) {
    const std::uint8_t* const base = image.plane_data[0].data;
    const std::ptrdiff_t stride = image.plane_data[0].stride;
    bool is_float = false;
    const phase of_floats = float_phase(image.format, is_float);
    if (is_float) return f(float_reader{base, stride}, of_floats);
    const sample_layout layout = layout_of(image.format);
    if (layout.pack == packing::plain8) return f(byte_reader{base, stride}, layout.mosaic);
    if (layout.pack == packing::plain16) return f(word_reader{base, stride, layout.shift}, layout.mosaic);
    return f(packed_reader{base, stride, line_stride(image.format, image.width), layout}, layout.mosaic);
}

} // namespace

frame_statistics measure_frame(const img_descriptor& image) {
    return with_reader(image, [&](const auto& reader, phase mosaic) { return statistics_of(reader, image, mosaic); });
}

float bounded_intensity(float value) { return std::isnan(value) ? 0.0F : std::clamp(value, -8.0F, 8.0F); }
float bounded_global_brightness(float value) { return value >= 0 ? std::min(value, 1.0F) : 0.0F; }

tonemapping_factors calc_tonemapping_factors(const img_descriptor& image, tonemapping_state& state, float intensity,
                                             float global_brightness) {
    const profile_scope scope("apply_tonemapping calc_tonemapping_factors");
    intensity = bounded_intensity(intensity);
    global_brightness = bounded_global_brightness(global_brightness);
    if (!state.initialised) {
        state.exponent_filter.value = 0.5F;
        state.low_filter.value = 0;
        state.high_filter.value = 1;
        state.initialised = true;
    }
    const frame_statistics frame = measure_frame(image);
    if (frame.exponent == 0) return {};
    const float exponent = smooth(frame.exponent, state.exponent_filter);
    state.table.build(intensity, global_brightness, frame.mean, exponent);
    output_range range;
    const bool measured = with_reader(
        image, [&](const auto& reader, phase mosaic) { return range_of(reader, image, mosaic, state.table, range); });
    if (!measured) return {};
    const float high = smooth(range.high, state.high_filter), low = smooth(range.low, state.low_filter);
    if (!(high - low > 0)) return {};
    return {intensity, global_brightness, frame.mean, exponent, 1 / (high - low), -low / (high - low)};
}

} // namespace img_pipe
