#include "optics.h"

#include <camera_sim/registers.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>
#include <random>

namespace camera_sim {

namespace {

constexpr double full_well = 10000, read_noise = 6; // electrons
constexpr double own_black = 2;                     // counts of 255
constexpr double wanted_mean = 0.4;                 // of full scale, at level 1 and the start values
constexpr double start_exposure = 10000;            // us
constexpr std::size_t noise_places = 1 << 16;
constexpr double noise_unit = 32;
// Reach of the blur in sensor widths, for the whole focus range.
constexpr double blur_reach = 0.08;

constexpr uint32_t mono8 = 0x01080001, first_mosaic = 0x01080008; // GR, RG, GB, BG follow each other

// Which colour is at the four places of a 2 x 2 cell, line by line: 0 red, 1 green, 2 blue.
constexpr std::array<std::array<uint8_t, 4>, 4> mosaics{{{1, 0, 2, 1}, {0, 1, 1, 2}, {1, 2, 0, 1}, {2, 1, 1, 0}}};

double hash(uint32_t x, uint32_t y) { // 0 to 1
    uint32_t h = x * 2654435761U ^ y * 2246822519U;
    h ^= h >> 15;
    h *= 2246822519U;
    return static_cast<double>(h >> 12) / (1U << 20);
}

std::array<double, 3> colour_of(double hue, double saturation, double value) {
    std::array<double, 3> colour{};
    for (std::size_t i = 0; i < 3; ++i) {
        const double at = std::fmod(hue * 6 + 4.0 * static_cast<double>(3 - i), 6.0); // red first
        const double part = std::clamp(std::abs(at - 3) - 1, 0.0, 1.0);
        colour[i] = value * (1 - saturation * (1 - part));
    }
    return colour;
}

// Eight by six patches of greys with a fine grain; of a colourful scene the middle ones have colours.
std::array<double, 3> reflectance(uint32_t x, uint32_t y, uint32_t width, uint32_t height, bool colours) {
    const uint32_t column = x * 8 / width, line = y * 6 / height;
    const double grey = 0.15 + 0.65 * ((column * 3 + line * 5) % 8) / 7.0;
    std::array<double, 3> colour{grey, grey, grey};
    if (colours && column >= 1 && column < 7 && line >= 1 && line < 5) {
        constexpr std::array<double, 4> saturations{0.85, 0.5, 0.7, 0.25}, values{0.8, 0.85, 0.4, 0.6};
        colour = colour_of((column - 1) / 6.0, saturations[line - 1], values[line - 1]);
    }
    const double grain = 0.75 + 0.5 * hash(x / 2, y / 2);
    for (double& each : colour) each = std::clamp(each * grain, 0.0, 1.0);
    return colour;
}

// A line's means over 2 reach + 1 places, the outermost of them by their part; edges are mirrored.
void blur_line(const uint8_t* from, std::ptrdiff_t step, std::ptrdiff_t count, double reach,
               std::vector<uint32_t>& sums, uint8_t* to) {
    const auto whole = static_cast<std::ptrdiff_t>(reach);
    const double edge = reach - static_cast<double>(whole);
    const std::ptrdiff_t border = whole + 1;
    const auto mirrored = [&](std::ptrdiff_t i) {
        const std::ptrdiff_t period = std::max<std::ptrdiff_t>(2 * (count - 1), 1);
        i = std::abs(i) % period;
        return i < count ? i : period - i;
    };
    sums.resize(static_cast<std::size_t>(count + 2 * border + 1));
    sums[0] = 0;
    for (std::ptrdiff_t i = 0; i < count + 2 * border; ++i)
        sums[static_cast<std::size_t>(i + 1)] = sums[static_cast<std::size_t>(i)] + from[mirrored(i - border) * step];
    const auto sum = [&](std::ptrdiff_t first, std::ptrdiff_t end) { // of places around the line
        return static_cast<double>(sums[static_cast<std::size_t>(end + border)] -
                                   sums[static_cast<std::size_t>(first + border)]);
    };
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        const double inner = sum(i - whole, i + whole + 1), outer = sum(i - border, i + border + 1) - inner;
        to[i * step] = static_cast<uint8_t>((inner + edge * outer) / (2 * reach + 1) + 0.5);
    }
}

} // namespace

optics::optics(const camera_options& options)
    : scene{options.scene}, width{options.sensor_width}, height{options.sensor_height} {
    const bool colours = scene.what == scene_kind::colours;
    sharp.assign(colours ? 3 : 1, plane(std::size_t{width} * height));
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x) {
            const auto colour = reflectance(x, y, width, height, colours);
            for (std::size_t i = 0; i < sharp.size(); ++i)
                sharp[i][std::size_t{y} * width + x] = static_cast<uint8_t>(colour[i] * 255 + 0.5);
        }
    const plane& green = sharp[colours ? 1 : 0];
    const double mean = std::accumulate(green.begin(), green.end(), 0.0) / static_cast<double>(green.size()) / 255;
    electrons = (wanted_mean - own_black / 255) * full_well / mean / start_exposure;
    seen = sharp;
    seen_at = scene.sharp_at;

    std::mt19937 random{options.faults.seed & 0xFFFFFFFF};
    std::normal_distribution<double> gauss;
    noise.resize(noise_places);
    for (int8_t& each : noise) each = static_cast<int8_t>(std::clamp(gauss(random) * noise_unit, -127.0, 127.0));
}

bool optics::shows(uint32_t pixel_format) {
    return pixel_format == mono8 || (pixel_format >= first_mosaic && pixel_format < first_mosaic + mosaics.size());
}

void optics::look(uint32_t focus) {
    if (focus == seen_at) return;
    seen_at = focus;
    seen = sharp;
    const double off = std::abs(static_cast<double>(focus) - static_cast<double>(scene.sharp_at));
    const double reach = off / reg::focus_most * blur_reach * width;
    if (reach <= 0) return;
    std::vector<uint32_t> sums;
    plane between(std::size_t{width} * height);
    for (plane& each : seen) {
        for (uint32_t y = 0; y < height; ++y)
            blur_line(&each[std::size_t{y} * width], 1, width, reach, sums, &between[std::size_t{y} * width]);
        for (uint32_t x = 0; x < width; ++x) blur_line(&between[x], width, height, reach, sums, &each[x]);
    }
}

light_change optics::light_at(uint64_t frame) const {
    light_change now{};
    for (const light_change& each : scene.light)
        if (each.frame <= frame) now = each;
    return now;
}

// The mean of the lamp's light over the exposure; 1 without flicker.
double optics::lamp(double seconds, double exposure_us) const {
    const double w = 2 * std::numbers::pi * scene.flicker_frequency, length = exposure_us * 1e-6;
    if (scene.flicker <= 0 || w * length <= 0) return 1;
    return 1 + scene.flicker * (std::cos(w * seconds) - std::cos(w * (seconds + length))) / (w * length);
}

void optics::expose(uint64_t frame, double seconds, const sensor_settings& now, std::span<std::byte> out) {
    look(now.focus);
    const light_change light = light_at(frame);
    const std::array<double, 3> tint{light.red, 1, light.blue};
    const double falling = electrons * light.level * lamp(seconds, now.exposure) * now.exposure *
                           static_cast<double>(now.iris) / reg::iris_start;
    // What a place of each reflectance becomes, in 1/256 counts: mean, deviation, and where the well is full.
    struct response {
        std::array<int32_t, 256> mean, deviation;
        int32_t most;
    };
    std::array<response, 3> of{};
    const double black = own_black + now.black_level;
    for (std::size_t c = 0; c < of.size(); ++c) {
        const double counts = std::pow(10, now.gain[c] / 20) * now.balance[c] * 255 / full_well * 256; // of an electron
        for (std::size_t i = 0; i < 256; ++i) {
            const double photons = std::min(falling * tint[c] * static_cast<double>(i) / 255, 4 * full_well);
            of[c].mean[i] = static_cast<int32_t>(photons * counts + black * 256);
            of[c].deviation[i] =
                static_cast<int32_t>(std::sqrt(photons + read_noise * read_noise) * counts / noise_unit);
        }
        of[c].most = static_cast<int32_t>(std::min(full_well * counts + black * 256, 255.0 * 256));
    }
    std::minstd_rand random{static_cast<uint32_t>(frame * 2654435761U + 1)};
    const bool mosaic = now.pixel_format != mono8;
    const auto& cell = mosaics[mosaic ? now.pixel_format - first_mosaic : 0];
    const uint32_t columns = std::min(now.width, width - now.offset_x),
                   lines = std::min(now.height, height - now.offset_y);
    for (uint32_t y = 0; y < lines; ++y) {
        const std::size_t start = std::size_t{y + now.offset_y} * width + now.offset_x;
        std::byte* const to = &out[std::size_t{y} * now.width];
        const std::size_t shake = random();
        for (uint32_t phase = 0; phase < 2; ++phase) {
            const std::size_t c = mosaic ? cell[(y & 1) * 2 + phase] : 1;
            const response& r = of[c];
            const uint8_t* const place = &seen[seen.size() == 1 ? 0 : c][start];
            for (uint32_t x = phase; x < columns; x += 2) {
                const int32_t v = r.mean[place[x]] + r.deviation[place[x]] * noise[(shake + x) % noise_places];
                to[x] = static_cast<std::byte>((std::clamp(v, 0, r.most) + 128) >> 8);
            }
        }
    }
}

} // namespace camera_sim
