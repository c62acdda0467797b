#include "focus.h"

#include "pixel_reader.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace auto_alg {

extern const int focus_most_positions = coarse_positions + 2 * most_halvings + 1;

namespace {

struct block_grid {
    std::int32_t columns, lines;           // 1 x 1 with a block of the whole area where blocks are not used
    std::int32_t left, top, width, height; // of the first block
};

block_grid grid_of(const image_area& area) {
    const std::int32_t columns = area.width / block_size, lines = area.height / block_size;
    if (columns < 1 || lines < 1 || std::int64_t{columns} * lines > most_blocks)
        return {1, 1, area.left, area.top, area.width, area.height};
    return {columns,
            lines,
            area.left + (area.width - columns * block_size) / 2,
            area.top + (area.height - lines * block_size) / 2,
            block_size,
            block_size};
}

constexpr std::int32_t apart = 2, longest_run = 1024;

// Differences and sum over some lines of a block; a line is compared with itself and with the second one below it.
std::uint64_t block_contrast(const pixel_reader& reader, const block_grid& grid, std::int32_t column, std::int32_t line,
                             std::int32_t lines_measured, std::int32_t run) {
    const std::int32_t left = grid.left + column * grid.width, top = grid.top + line * grid.height;
    if (grid.width <= apart || grid.height <= apart) return 0;
    std::int16_t own[longest_run], below[longest_run];
    std::uint64_t squares = 0, sum = 0, count = 0;
    for (std::int32_t i = 0; i < lines_measured; ++i) {
        const std::int32_t y =
            top + static_cast<std::int32_t>(std::int64_t{2 * i + 1} * (grid.height - apart) / (2 * lines_measured));
        // Of lines longer than a run in turn a run at the left, in the middle and at the right.
        const std::int32_t n = std::min(grid.width, run), x = left + (grid.width - n) / 2 * (i % 3);
        reader.details(x, y, n, own);
        reader.details(x, y + apart, n, below);
        std::uint32_t part = 0, total = 0; // of a run: below 2^31
        for (std::int32_t k = 0; k + apart < n; ++k) {
            const std::int32_t across = own[k + apart] - own[k], down = below[k] - own[k];
            part += static_cast<std::uint32_t>(across * across) + static_cast<std::uint32_t>(down * down);
            total += static_cast<std::uint32_t>(own[k]);
        }
        squares += part;
        sum += total;
        count += static_cast<std::uint64_t>(n - apart);
    }
    if (count == 0) return 0;
    const double mean = std::max(static_cast<double>(sum) / static_cast<double>(count), 16.0); // of 1023
    return static_cast<std::uint64_t>(contrast_unit * static_cast<double>(squares) / static_cast<double>(count) /
                                      (mean * mean));
}

} // namespace

focus_score measure_focus(const ip::img_descriptor& image, const image_area& area, std::int32_t block) {
    if (!ip::is_valid(image)) return {};
    const pixel_reader reader(image);
    if (reader.kind() == picture::none) return {};
    const block_grid grid = grid_of(area);
    const std::int32_t blocks = grid.columns * grid.lines;
    const std::int32_t pixels = reader.is_quick() ? contrast_pixels : slow_contrast_pixels;
    const std::int32_t run = std::clamp(pixels / blocks, std::min(16, grid.width), std::min(grid.width, longest_run));
    const std::int32_t lines = std::clamp(pixels / blocks / run, 1, std::max(grid.height / 2, 1));
    std::uint64_t own[most_blocks];
    for (std::int32_t y = 0; y < grid.lines; ++y)
        for (std::int32_t x = 0; x < grid.columns; ++x)
            own[y * grid.columns + x] = block_contrast(reader, grid, x, y, lines, run);

    const auto score = [&](std::int32_t x, std::int32_t y) {
        std::uint64_t value = own[y * grid.columns + x];
        for (std::int32_t j = std::max(y - 1, 0); j <= std::min(y + 1, grid.lines - 1); ++j)
            for (std::int32_t i = std::max(x - 1, 0); i <= std::min(x + 1, grid.columns - 1); ++i) {
                const bool itself = i == x && j == y;
                // The first block of the grid is nobody's neighbour.
                if (!itself && (i != 0 || j != 0)) value += own[j * grid.columns + i] >> 3;
            }
        const auto percent = [](double middle, std::int32_t first, std::int32_t size) {
            return (middle - first - size / 2.0) * 100 / size;
        };
        const double dx = percent(grid.left + (x + 0.5) * grid.width, area.left, area.width);
        const double dy = percent(grid.top + (y + 0.5) * grid.height, area.top, area.height);
        const double d = std::hypot(dx, dy) + 60;
        return static_cast<double>(value) * 10000 / (d * d);
    };
    if (block >= 0 && block < blocks) return {score(block % grid.columns, block / grid.columns), block};
    focus_score best;
    for (std::int32_t i = 0; i < blocks; ++i)
        if (const double s = score(i % grid.columns, i / grid.columns); s > best.score) best = {s, i};
    return best;
}

std::int64_t auto_focus::place(std::int64_t wanted) const {
    const std::int64_t bounded = std::clamp(wanted, low, high);
    return low + (bounded - low + lens_step / 2) / lens_step * lens_step;
}

bool auto_focus::start(const focus_params& params) {
    const auto whole = [](float v) {
        constexpr double most = 2147483647;
        return std::isnan(v) ? std::int64_t{0}
                             : static_cast<std::int64_t>(std::clamp(std::round(static_cast<double>(v)), -most, most));
    };
    const std::int64_t a = whole(params.min), b = whole(params.max);
    lens_step = std::max(whole(params.step), std::int64_t{1});
    low = std::min(a, b);
    high = low + (std::max(a, b) - low) / lens_step * lens_step;
    const std::int64_t places = (high - low) / lens_step + 1;
    if (places < 2) return false;
    coarse_count = static_cast<int>(std::min<std::int64_t>(places, coarse_positions));
    coarse = 0;
    halving = 0;
    side = 0;
    best = {};
    best_position = position = low;
    distance = (high - low) / (coarse_count - 1);
    running = true;
    return true;
}

bool auto_focus::settled(const auto_pass_params& params) const {
    if (frames < settle_frames) return false;
    return params.time_ns <= sent_ns || params.time_ns - sent_ns >= settle_ns; // equal: the camera tells no time
}

void auto_focus::take(const focus_score& found) {
    if (found.score <= best.score) return;
    best = found;
    best_position = position;
}

bool auto_focus::next_position() {
    if (++coarse < coarse_count) {
        position = place(low + (high - low) * coarse / (coarse_count - 1));
        return true;
    }
    while (distance > lens_step || side == 1) {
        if (side == 0) {
            if (halving == most_halvings) return false;
            ++halving;
            distance = (distance + 1) / 2;
            centre = best_position;
        }
        side ^= 1;
        const std::int64_t wanted = place(side == 1 ? centre - distance : centre + distance);
        if (wanted == centre || (wanted == position && side == 0)) continue; // at the range's end
        position = wanted;
        return true;
    }
    return false;
}

auto_focus::step auto_focus::advance(const ip::img_descriptor& image, const auto_pass_params& params) {
    if (!params.focus.request) {
        end();
        return {};
    }
    const auto send = [&] {
        frames = 0;
        sent_ns = params.time_ns;
        return step{true, position, true, false};
    };
    const image_region whole;
    const image_area area = area_of(image, params.focus.use_region ? params.region : whole);
    if (!running) {
        // What cannot be measured moves no lens. Nor does a range of one place: it stands for one that nobody knows.
        if (measure_focus(image, area, -1).score < 0 || !start(params.focus))
            return {false, params.focus.position, false, true};
        return send();
    }
    ++frames;
    if (!settled(params)) return {false, position, true, false};
    take(measure_focus(image, area, coarse < coarse_count ? -1 : best.block));
    if (next_position()) return send();
    running = false;
    const bool move = position != best_position;
    position = best_position;
    return {move, position, false, true};
}

} // namespace auto_alg
