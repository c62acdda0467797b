#include "parameters.h"

#include "../kernels/rows.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace img_pipe {

namespace {

float within(float value, float low, float high, float neutral) {
    return std::isfinite(value) ? std::clamp(value, low, high) : neutral;
}

using matrix3 = std::array<std::array<double, 3>, 3>;

matrix3 product(const matrix3& a, const matrix3& b) {
    matrix3 r{};
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j)
            for (std::size_t k = 0; k < 3; ++k) r[i][j] += a[i][k] * b[k][j];
    return r;
}

matrix3 diagonal(double a, double b, double c) { return {{{a, 0, 0}, {0, b, 0}, {0, 0, c}}}; }

matrix3 given(const corrections& c) {
    matrix3 m{};
    for (std::size_t i = 0; i < 9; ++i) m[i / 3][i % 3] = static_cast<double>(c.color_matrix[i]);
    return m;
}

constexpr double red_weight = 0.299, green_weight = 0.587, blue_weight = 0.114;
constexpr matrix3 to_ycc{{{red_weight, green_weight, blue_weight},
                          {-red_weight / 1.772, -green_weight / 1.772, (1 - blue_weight) / 1.772},
                          {(1 - red_weight) / 1.402, -green_weight / 1.402, -blue_weight / 1.402}}};
constexpr matrix3 from_ycc{
    {{1, 0, 1.402}, {1, -1.772 * blue_weight / green_weight, -1.402 * red_weight / green_weight}, {1, 1.772, 0}}};

// Chroma turned and stretched around the grey axis; luma and grey stay.
matrix3 saturation_hue(double saturation, double hue) {
    const double turn = hue * std::numbers::pi;
    const double cosine = saturation * std::cos(turn), sine = saturation * std::sin(turn);
    return product(from_ycc, product({{{1, 0, 0}, {0, cosine, -sine}, {0, sine, cosine}}}, to_ycc));
}

matrix_params with_offset(const matrix3& m, double factor, double offset) {
    matrix_params out{};
    for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t j = 0; j < 3; ++j) out.m[i][j] = static_cast<float>(m[i][j] * factor);
        out.m[i][3] = static_cast<float>(offset);
    }
    return out;
}

} // namespace

corrections::corrections(const transform_params& p)
    : forced(p.force_parameter_route),
      saturation(within(p.saturation, 0, 4, 1)),
      hue(within(p.hue, -1, 1, 0)),
      gamma_value(gamma_within(p.gamma)),
      contrast(std::clamp(p.contrast, -256, 256 * 255)),
      brightness(std::clamp(p.brightness, -256 * 256, 256 * 256)),
      sharpness{p.sharpness, p.denoise} {
    for (int i = 0; i < 4; ++i) {
        gain[i] = p.wb_enable ? within(p.wb_gain[i], 0, 4, 1) : 1.0F;
        white_balance = white_balance || gain[i] != 1.0F;
    }
    for (int i = 0; i < 9; ++i) {
        const float neutral = i % 4 == 0 ? 1.0F : 0.0F;
        color_matrix[i] = p.color_matrix_enable ? within(p.color_matrix[i], -16, 16, neutral) : neutral;
        matrix = matrix || color_matrix[i] != neutral;
    }
    colour = saturation != 1 || hue != 0;
    tone = contrast != 0 || brightness != 0;
    gamma = gamma_value != 1;
    sharpen = p.sharpness != 0 || p.denoise != 0;
}

sample_params mosaic_gains(const corrections& c, std::uint32_t format) {
    sample_params out{{1, 1, 1, 1}, 0, nullptr, nullptr};
    const phase mosaic = layout_of(format).mosaic;
    if (mosaic == phase::grey) return out;
    // Colours of the four sites, line by line, as places of `gain`: the first green is the one on a red line.
    static constexpr std::uint8_t sites[4][4] = {{2, 3, 1, 0}, {3, 2, 0, 1}, {1, 0, 2, 3}, {0, 1, 3, 2}};
    for (int i = 0; i < 4; ++i) out.gain[i] = c.gain[sites[static_cast<int>(mosaic)][i]];
    return out;
}

namespace {

// Contrast and brightness as gains and an offset, where that is the same: gains that are cut at white must not come
// back below it.
bool tone_as_gains(const corrections& c, sample_params& to) {
    const double factor = 1 + c.contrast / 256.0, offset = 0.5 - 0.5 * factor + c.brightness / 256.0;
    if (std::ranges::any_of(to.gain, [](float gain) { return gain > 1; }) && factor + offset < 1) return false;
    for (float& gain : to.gain) gain *= static_cast<float>(factor);
    to.offset = static_cast<float>(65535 * offset);
    return true;
}

} // namespace

bool add_tone(const corrections& c, lut_context& luts, sample_params& to) {
    if (!c.tone && !c.gamma) return true;
    const gamma_tables* power = c.gamma ? luts.gamma(c.gamma_value) : nullptr;
    if (c.gamma && power == nullptr) return false;
    if ((!c.gamma || luts.gamma_curve() != nullptr) && tone_as_gains(c, to)) {
        if (!c.gamma) return true;
        to.table = luts.gamma_words();
        to.table8 = power->bytes;
        to.curve = luts.gamma_curve();
        return true;
    }
    const tone_tables* tables = luts.tone(c.contrast, c.brightness, c.gamma_value);
    if (tables == nullptr) return false;
    to.table = tables->words;
    to.table8 = tables->bytes;
    return true;
}

matrix_params whole_matrix(const corrections& c, bool with_gains) {
    matrix3 m = given(c);
    if (with_gains)
        m = product(m, diagonal(static_cast<double>(c.gain[0]), static_cast<double>(c.gain[1]),
                                static_cast<double>(c.gain[2])));
    if (c.colour) m = product(saturation_hue(static_cast<double>(c.saturation), static_cast<double>(c.hue)), m);
    const double factor = 1 + c.contrast / 256.0;
    return with_offset(m, factor, 0.5 - 0.5 * factor + c.brightness / 256.0);
}

bool demosaic_colours(const corrections& c, lut_context& luts, bool with_gains, demosaic_params& to) {
    to.matrix_on = (with_gains && c.white_balance) || c.matrix || c.colour || c.tone;
    to.matrix = whole_matrix(c, with_gains);
    if (!c.gamma) return true;
    const gamma_tables* tables = luts.gamma(c.gamma_value);
    if (tables == nullptr) return false;
    to.gamma = luts.gamma_words();
    to.gamma8 = tables->bytes;
    to.curve = luts.gamma_curve();
    return true;
}

matrix_params in_planes(const matrix_params& rgb) {
    matrix3 m{};
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j) m[i][j] = static_cast<double>(rgb.m[i][j]);
    m = product(to_ycc, product(m, from_ycc));
    matrix_params out{};
    for (std::size_t i = 0; i < 3; ++i) {
        double offset = i == 0 ? 0 : 0.5;
        for (std::size_t j = 0; j < 3; ++j) {
            out.m[i][j] = static_cast<float>(m[i][j]);
            offset += to_ycc[i][j] * static_cast<double>(rgb.m[j][3]) - (j == 0 ? 0 : 0.5 * m[i][j]);
        }
        out.m[i][3] = static_cast<float>(offset);
    }
    return out;
}

} // namespace img_pipe
