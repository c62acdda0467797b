#include "white_balance.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace auto_alg {

namespace {

// Share of grey records from which they alone count.
constexpr double enough_grey = 0.08;

float bounded(float value, float low, float high, float neutral) {
    return std::isfinite(value) ? std::clamp(value, low, high) : neutral;
}

struct channel_sums {
    std::uint64_t r = 0, g = 0, b = 0, count = 0;
    void add(unsigned red, unsigned green, unsigned blue) {
        r += red;
        g += green;
        b += blue;
        ++count;
    }
};

} // namespace

balance_result exec_auto_whitebalance_steps_on_pixels(std::span<const byte_record> records, const float (&gain)[3],
                                                      bool once) {
    constexpr int neutral = 64, most = 255;
    int steps[3], given[3];
    for (int i = 0; i < 3; ++i) {
        given[i] = std::min(static_cast<int>(bounded(gain[i], 0, 4, 1) * 64), most);
        steps[i] = std::max(given[i], neutral);
    }
    const int excess = *std::ranges::min_element(steps) - neutral;
    for (int& s : steps) s -= excess;

    channel_sums all, grey;
    for (const byte_record& p : records) {
        const unsigned green = (static_cast<unsigned>(p.g) + p.g2) / 2;
        const unsigned luma = (p.b * 29U + p.r * 76U + green * 150U) >> 8U;
        all.add(p.r, green, p.b);
        const auto alike = [&](unsigned v) {
            return 4 * std::abs(static_cast<int>(v) - static_cast<int>(luma)) < static_cast<int>(luma);
        };
        if (luma - 10U < 244U && alike(p.r) && alike(green) && alike(p.b)) grey.add(p.r, green, p.b);
    }
    const channel_sums& used =
        static_cast<double>(grey.count) >= enough_grey * static_cast<double>(all.count) ? grey : all;
    if (used.count == 0) return {{gain[0], gain[1], gain[2]}, true};
    const auto mean = [&](std::uint64_t sum) { return static_cast<double>(sum) / static_cast<double>(used.count); };
    const double average[3] = {mean(used.r), mean(used.g), mean(used.b)};
    const double target = (average[0] + average[1] + average[2]) / 3;

    // Nearer than another step of the gain would bring a bright channel, which would go to and fro.
    const auto reached = [&](int i) { return std::abs(average[i] - target) <= average[i] / (2 * steps[i]); };
    const auto near = [&](int i) { return std::abs(average[i] - target) <= 1 || reached(i); };
    if (!near(0) || !near(1) || !near(2)) {
        for (int i = 0; i < 3; ++i) {
            if (reached(i)) continue; // for good, where another channel cannot follow
            const int difference = static_cast<int>(std::lround(average[i] - target));
            const int step = once ? std::max(std::abs(difference) / 4, 1) : 1;
            if (difference > 0 && steps[i] > neutral) steps[i] = std::max(steps[i] - step, neutral);
            if (difference < 0 && steps[i] < most) steps[i] = std::min(steps[i] + step, most);
        }
        if (once && std::ranges::all_of(steps, [](int s) { return s > neutral; }))
            for (int& s : steps) --s;
    }
    balance_result result{{}, std::ranges::equal(steps, given)};
    for (int i = 0; i < 3; ++i) result.gain[i] = static_cast<float>(std::clamp(steps[i], 0, most)) / 64;
    return result;
}

balance_result exec_auto_whitebalance_on_float_pixels(std::span<const float_record> records, const float (&gain)[3]) {
    constexpr int rounds = 40;
    constexpr double darkest = 1.5258789e-5, brightest = 0.999, near_enough = 0.001;
    if (records.empty()) return {{gain[0], gain[1], gain[2]}, true};
    double current[3], applied[3];
    for (int i = 0; i < 3; ++i) {
        applied[i] = static_cast<double>(bounded(gain[i], 0, 4, 1));
        if (applied[i] <= 0) applied[i] = 1; // such a channel is black whatever it is divided by
        current[i] = std::max(applied[i], 1.0);
    }
    const double excess = *std::ranges::min_element(current) - 1;
    for (double& c : current) c -= excess;

    for (int round = 0; round < rounds; ++round) {
        double all[3] = {}, grey[3] = {};
        std::size_t count = 0;
        for (const float_record& p : records) {
            const double raw[3] = {static_cast<double>(p.r), static_cast<double>(p.g + p.g2) / 2,
                                   static_cast<double>(p.b)};
            double v[3];
            for (int i = 0; i < 3; ++i) v[i] = std::clamp(raw[i] / applied[i] * current[i], 0.0, 1.0);
            const double luma = 0.299 * v[0] + 0.587 * v[1] + 0.114 * v[2];
            bool is_grey = luma >= darkest && luma <= brightest;
            for (const double c : v) is_grey = is_grey && std::abs(c - luma) < luma / 4;
            count += is_grey ? 1 : 0;
            for (int i = 0; i < 3; ++i) {
                all[i] += v[i];
                grey[i] += is_grey ? v[i] : 0;
            }
        }
        const bool few = static_cast<double>(count) < enough_grey * static_cast<double>(records.size());
        const double* const sum = few ? all : grey;
        const double mean = (sum[0] + sum[1] + sum[2]) / 3;
        if (!(mean > 0)) break;
        bool near = true;
        for (int i = 0; i < 3; ++i) near = near && std::abs(sum[i] / mean - 1) < near_enough;
        if (near) break;
        for (int i = 0; i < 3; ++i)
            if (sum[i] > 0) current[i] = std::clamp(current[i] * mean / sum[i], 0.0, 4.0);
        // The smallest gain stays 1, so that white is reached.
        const double least = *std::ranges::min_element(current);
        if (least > 0)
            for (double& c : current) c = std::min(c / least, 4.0);
    }
    balance_result result{{}, true};
    for (int i = 0; i < 3; ++i) {
        result.gain[i] = static_cast<float>(std::clamp(current[i], 0.0, 4.0));
        result.done = result.done && std::abs(result.gain[i] - gain[i]) < 0.001F;
    }
    return result;
}

namespace {

// Records in parts of a count of 255, three arrays, which a compiler can take several of at a time.
struct plain_records {
    std::int32_t count = 0;
    std::uint16_t channel[3][most_samples]; // 256ths
};

std::uint16_t to_fixed(float value, float most, float one) {
    return static_cast<std::uint16_t>(std::clamp(value, 0.0F, most) * one + 0.5F);
}

// How many are neutral with these gains, in 256ths. Without branches and in lanes of 16 bits, so that several are
// counted at once.
std::int32_t count_neutral(const plain_records& records, const std::uint16_t (&gain)[3]) {
    const auto applied = [](std::uint16_t value, std::uint16_t by) {
        const auto counts = static_cast<std::int16_t>(std::uint32_t{value} * by >> 16); // gains are 16 at most
        return counts < 255 ? counts : std::int16_t{255};
    };
    const auto one = [](bool yes) { return static_cast<std::int16_t>(yes ? 1 : 0); };
    const auto lesser = [](std::int16_t x, std::int16_t y) { return x < y ? x : y; };
    const auto greater = [](std::int16_t x, std::int16_t y) { return x < y ? y : x; };
    std::int16_t neutral = 0;
    for (std::int32_t i = 0; i < records.count; ++i) {
        const std::int16_t r = applied(records.channel[0][i], gain[0]), g = applied(records.channel[1][i], gain[1]),
                           b = applied(records.channel[2][i], gain[2]);
        const auto luma = static_cast<std::uint16_t>(r * 79 + g * 150 + b * 27); // times 256
        const std::int16_t visible = one(static_cast<std::uint16_t>(luma - 51 * 256) < 189 * 256);
        // The ratio of each two between 0.925 and 1 / 0.925, so of the greatest and the least.
        const auto least = static_cast<std::int16_t>(lesser(lesser(r, g), b) * 40),
                   most = static_cast<std::int16_t>(greater(greater(r, g), b) * 37);
        neutral = static_cast<std::int16_t>(neutral + (visible & one(least >= most)));
    }
    return neutral;
}

} // namespace

std::int32_t find_temperature(sample_array& samples, const white_balance_params& params) {
    plain_records records; // as they were without gains
    float inverse[3];
    for (int i = 0; i < 3; ++i) {
        const float g = bounded(params.gain[i], 0, 4, 1);
        inverse[i] = g > 0 ? 1 / g : 0;
    }
    const auto put = [&](float r, float g, float b) {
        const float values[3] = {r, g, b};
        for (int i = 0; i < 3; ++i) records.channel[i][records.count] = to_fixed(values[i] * inverse[i], 255, 256);
        ++records.count;
    };
    const std::size_t stride = samples.count > most_samples / scan_stride ? scan_stride : 1;
    for (std::size_t i = 0; i < samples.bytes().size(); i += stride) {
        const byte_record& p = samples.byte_places[i];
        put(p.r, static_cast<float>(p.g + p.g2) / 2, p.b);
    }
    for (std::size_t i = 0; i < samples.floats().size(); i += stride) {
        const float_record& p = samples.float_places[i];
        put(p.r * 255, (p.g + p.g2) * (255.0F / 2), p.b * 255);
    }

    constexpr std::int32_t lowest = temperature_table::lowest, highest = temperature_table::highest;
    const std::int32_t a = std::clamp(params.temperature_min, lowest, highest);
    const std::int32_t b = std::clamp(params.temperature_max, lowest, highest);
    std::int32_t best = -1, most = 0;
    for (std::int32_t t = std::min(a, b); t <= std::max(a, b); t += temperature_table::step) {
        const float(&row)[3] = params.table->gain[(t - lowest) / temperature_table::step];
        std::uint16_t gain[3];
        for (int i = 0; i < 3; ++i) gain[i] = to_fixed(bounded(row[i], 0, 16, 1), 16, 256);
        if (const std::int32_t neutral = count_neutral(records, gain); neutral > most) {
            most = neutral;
            best = t;
        }
    }
    return best;
}

balance_result balance_by_temperature(sample_array& samples, const white_balance_params& params,
                                      temperature_state& state) {
    const std::int32_t low = std::min(params.temperature_min, params.temperature_max);
    const std::int32_t high = std::max(params.temperature_min, params.temperature_max);
    if (state.current < 0) state.current = params.temperature;
    const std::int32_t before = state.current;
    const std::int32_t found = find_temperature(samples, params);
    bool done = false;
    if (params.once) {
        if (found >= 0) state.current = found;
        done = --state.wb_scan_countdown <= 0;
        if (done) state.wb_scan_countdown = scan_passes;
    } else {
        std::int32_t goal = found;
        if (found < 0) {
            const bool within = state.current >= low && state.current <= high;
            goal =
                within ? state.current : low + (low - high) / 2; // from above into the limits, from below to their end
        }
        state.current += (goal - state.current) / 3;
    }
    state.current = std::clamp(state.current, temperature_table::lowest, temperature_table::highest);
    state.current = std::clamp(state.current, std::clamp(low, temperature_table::lowest, temperature_table::highest),
                               std::clamp(high, temperature_table::lowest, temperature_table::highest));
    if (!params.once) done = state.current == before;
    // Of the nearest row: thirds of whole kelvins end up to two short of their goal.
    const std::int32_t nearest = state.current - temperature_table::lowest + temperature_table::step / 2;
    const float(&row)[3] = params.table->gain[nearest / temperature_table::step];
    balance_result result{{}, done};
    for (int i = 0; i < 3; ++i) result.gain[i] = bounded(row[i], 0, 4, 1);
    return result;
}

} // namespace auto_alg
