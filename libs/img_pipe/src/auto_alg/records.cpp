#include "records.h"
#include "pixel_reader.h"

#include <algorithm>
#include <cmath>

namespace auto_alg {

image_area area_of(const ip::img_descriptor& image, const image_region& region) {
    static constexpr std::int64_t far = std::int64_t{1} << 40; // beyond any image, and no sum of two overflows
    const auto inside = [](std::int64_t first, std::int64_t size, std::int64_t whole, std::int32_t& begin,
                           std::int32_t& length) {
        whole = std::max<std::int64_t>(whole, 0);
        const std::int64_t from = std::clamp(first, -far, far), end = from + std::clamp<std::int64_t>(size, 0, far);
        begin = static_cast<std::int32_t>(std::clamp<std::int64_t>(from, 0, whole));
        length = static_cast<std::int32_t>(std::clamp<std::int64_t>(end, 0, whole)) - begin;
    };
    image_area area{};
    inside(region.left, region.width, image.width, area.left, area.width);
    inside(region.top, region.height, image.height, area.top, area.height);
    if (area.width < 1 || area.height < 1) return {0, 0, image.width, image.height};
    return area;
}

namespace {

// Calls f(x, y) for the first pixel of each cell of the grid. Cells are `size` pixels square and lie on multiples of
// that in the image. Each lies in cache lines of its own, which a frame that just came is not in: those of the grid's
// next line are on their way meanwhile, or every cell would wait for memory.
template <class Function>
void for_each_cell(const pixel_reader& reader, const image_area& area, std::int32_t size, const Function& f) {
    const std::int32_t left = (area.left + size - 1) / size, top = (area.top + size - 1) / size;
    const std::int32_t columns = (area.left + area.width) / size - left, lines = (area.top + area.height) / size - top;
    if (columns < 1 || lines < 1) return;
    const std::int32_t nx = std::min(columns, sample_columns), ny = std::min(lines, sample_lines);
    // The cell at so many quarters of a field.
    const auto cell = [](std::int64_t quarters, std::int64_t cells, std::int64_t fields) {
        return static_cast<std::int32_t>(quarters * cells / (4 * fields));
    };
    std::int32_t x[2][sample_columns]; // of even and odd lines of the grid
    for (std::int32_t i = 0; i < 2 * nx; ++i)
        x[i & 1][i / 2] = (left + cell(4 * (i / 2) + 1 + (i & 1) * 2, columns, nx)) * size;
    const auto y = [&](std::int32_t j) { return (top + cell(4 * j + 2, lines, ny)) * size; };
    const auto fetch = [&](std::int32_t i, std::int32_t j, std::int32_t at_y) {
        for (std::int32_t k = 0; k < size; ++k) reader.prefetch(x[j & 1][i], at_y + k);
    };
    std::int32_t next = y(0);
    for (std::int32_t i = 0; i < nx; ++i) fetch(i, 0, next);
    for (std::int32_t j = 0; j < ny; ++j) {
        const std::int32_t own = next;
        if (j + 1 < ny) next = y(j + 1);
        for (std::int32_t i = 0; i < nx; ++i) {
            if (j + 1 < ny) fetch(i, j + 1, next);
            f(x[j & 1][i], own);
        }
    }
}

// Of the four sites of a cell, line by line, those that are red, green, blue and the second green.
struct cell_sites {
    int r, g, b, g2;
};
cell_sites sites_of(ip::phase mosaic) {
    switch (mosaic) {
    case ip::phase::bg:
        return {3, 1, 0, 2};
    case ip::phase::gb:
        return {2, 0, 1, 3};
    case ip::phase::gr:
        return {1, 0, 2, 3};
    default:
        return {0, 1, 3, 2};
    }
}

} // namespace

void auto_sample_by_img(const ip::img_descriptor& image, const image_area& area, sample_array& to) {
    to.count = 0;
    to.is_float = false;
    if (!ip::is_valid(image)) return;
    const pixel_reader reader(image);
    const auto add = [&](const byte_record& r) { to.byte_places[to.count++] = r; };
    switch (reader.kind()) {
    case picture::none:
        return;
    case picture::mosaic: {
        const cell_sites at = sites_of(reader.mosaic());
        for_each_cell(reader, area, 2, [&](std::int32_t x, std::int32_t y) {
            const auto high = [&](int site) {
                return static_cast<std::uint8_t>(reader.sample(x + site % 2, y + site / 2) >> 8);
            };
            add({high(at.r), high(at.g), high(at.b), high(at.g2)});
        });
        return;
    }
    case picture::mosaic_float: {
        to.is_float = true;
        const cell_sites at = sites_of(reader.mosaic());
        for_each_cell(reader, area, 2, [&](std::int32_t x, std::int32_t y) {
            const auto value = [&](int site) { return reader.float_sample(x + site % 2, y + site / 2); };
            to.float_places[to.count++] = {value(at.r), value(at.g), value(at.b), value(at.g2)};
        });
        return;
    }
    case picture::grey:
        for_each_cell(reader, area, 1, [&](std::int32_t x, std::int32_t y) {
            const auto v = static_cast<std::uint8_t>(reader.sample(x, y) >> 8);
            add({v, v, v, v});
        });
        return;
    case picture::grey_float: // as bytes: what is no mosaic has no use for more
        for_each_cell(reader, area, 1, [&](std::int32_t x, std::int32_t y) {
            const auto v = static_cast<std::uint8_t>(std::min(reader.float_sample(x, y), 1.0F) * 255.0F);
            add({v, v, v, v});
        });
        return;
    default:
        for_each_cell(reader, area, 1, [&](std::int32_t x, std::int32_t y) { add(reader.colour(x, y)); });
        return;
    }
}

namespace {

std::uint8_t to_byte(float v) { return static_cast<std::uint8_t>(v > 0 ? std::min(v, 255.0F) + 0.5F : 0.0F); }

float bounded(float value, float low, float high, float neutral) {
    return std::isfinite(value) ? std::clamp(value, low, high) : neutral;
}

} // namespace

void apply_software_clrmtx_to_sampling_data(const software_params& software, sample_array& samples) {
    if (!software.color_matrix_enable) return;
    float m[9];
    for (int i = 0; i < 9; ++i) m[i] = bounded(software.color_matrix[i], -16, 16, i % 4 == 0 ? 1.0F : 0.0F);
    const auto row = [&](int i, float r, float g, float b) {
        return m[3 * i] * r + m[3 * i + 1] * g + m[3 * i + 2] * b;
    };
    for (byte_record& p : samples.bytes()) {
        const float r = p.r, g = static_cast<float>(p.g + p.g2) / 2, b = p.b;
        const std::uint8_t green = to_byte(row(1, r, g, b));
        p = {to_byte(row(0, r, g, b)), green, to_byte(row(2, r, g, b)), green};
    }
    for (float_record& p : samples.floats()) {
        const float g = (p.g + p.g2) / 2, green = std::max(row(1, p.r, g, p.b), 0.0F);
        p = {std::max(row(0, p.r, g, p.b), 0.0F), green, std::max(row(2, p.r, g, p.b), 0.0F), green};
    }
}

void apply_software_wb_to_sampling_data(const white_balance_params& balance, sample_array& samples) {
    if (!balance.in_software) return;
    float gain[3];
    for (int i = 0; i < 3; ++i) gain[i] = bounded(balance.gain[i], 0, 4, 1);
    const auto times = [](std::uint8_t v, float by) { return to_byte(static_cast<float>(v) * by); };
    for (byte_record& p : samples.bytes())
        p = {times(p.r, gain[0]), times(p.g, gain[1]), times(p.b, gain[2]), times(p.g2, gain[1])};
    for (float_record& p : samples.floats()) p = {p.r * gain[0], p.g * gain[1], p.b * gain[2], p.g2 * gain[1]};
}

void apply_software_params_to_sampling_data(const software_params& software, sample_array& samples) {
    const float gamma = bounded(software.gamma, 0.01F, 100, 1);
    const float factor = 1 + static_cast<float>(std::clamp(software.contrast, -256, 256 * 255)) / 256;
    const float offset =
        0.5F - 0.5F * factor + static_cast<float>(std::clamp(software.brightness, -256 * 256, 256 * 256)) / 256;
    if (gamma == 1 && factor == 1 && offset == 0) return;
    const auto tone = [&](float v) {
        const float x = std::clamp(v * factor + offset, 0.0F, 1.0F);
        return gamma == 1 ? x : std::pow(x, gamma);
    };
    std::uint8_t table[256];
    for (int i = 0; i < 256; ++i) table[i] = to_byte(tone(static_cast<float>(i) / 255) * 255);
    for (byte_record& p : samples.bytes()) p = {table[p.r], table[p.g], table[p.b], table[p.g2]};
    for (float_record& p : samples.floats()) p = {tone(p.r), tone(p.g), tone(p.b), tone(p.g2)};
}

resulting_brightness calc_resulting_brightness_params(sample_array& samples) {
    if (samples.count == 0) return {-1, -1};
    double sum = 0;
    std::int32_t bright = 0;
    for (const byte_record& p : samples.bytes()) {
        const unsigned green = (static_cast<unsigned>(p.g) + p.g2) / 2;
        const unsigned luma = (p.b * 29U + p.r * 76U + green * 150U) >> 8U;
        sum += luma / 255.0;
        bright += luma >= bright_luma ? 1 : 0;
    }
    for (const float_record& p : samples.floats()) {
        const double luma = std::min(static_cast<double>(p.r) * 0.299 + static_cast<double>(p.g + p.g2) * (0.587 / 2) +
                                         static_cast<double>(p.b) * 0.114,
                                     1.0);
        sum += luma;
        bright += luma >= bright_level ? 1 : 0;
    }
    return {static_cast<float>(std::min(sum / samples.count, 1.0)),
            static_cast<float>(bright) / static_cast<float>(samples.count)};
}

} // namespace auto_alg
