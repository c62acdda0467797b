#include "auto_step.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace auto_alg {

namespace {

constexpr std::int32_t least_int = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t most_int = std::numeric_limits<std::int32_t>::max();

std::int32_t to_int(double v) {
    return std::isnan(v) ? 0 : static_cast<std::int32_t>(std::clamp<double>(v, least_int, most_int));
}

// Limits in the wrong order mean the same as in the right one.
struct int_range {
    std::int32_t low, high;
    [[nodiscard]] std::int32_t limit(std::int32_t v) const { return std::clamp(v, low, high); }
};

int_range exposure_range(const exposure_params& e) {
    const float low = std::min(e.min, e.max), high = std::max(e.min, e.max);
    // Of 0 nothing can be made by factors.
    const std::int32_t from = std::max(to_int(std::ceil(static_cast<double>(low))), 1);
    return {from, to_int(std::floor(static_cast<double>(high)))};
}

int_range iris_range(const iris_params& i) {
    const auto narrow = [](std::int64_t v) {
        return static_cast<std::int32_t>(std::clamp<std::int64_t>(v, least_int, most_int));
    };
    const std::int32_t a = narrow(i.min), b = narrow(i.max);
    return {std::min(a, b), std::max(a, b)};
}

} // namespace

bool is_steered(const exposure_params& e) {
    const int_range range = exposure_range(e);
    const bool in_reach = static_cast<double>(std::min(e.min, e.max)) <= most_int;
    return e.enable && !std::isnan(e.min) && !std::isnan(e.max) && in_reach && range.low <= range.high;
}

bool is_steered(const gain_params& g) { return g.enable && std::isfinite(g.min) && std::isfinite(g.max); }

bool is_steered(const iris_params& i) {
    return i.enable && std::min(i.min, i.max) <= most_int && std::max(i.min, i.max) >= least_int;
}

float reference_brightness(std::uint32_t wanted, float bright_share) {
    const double reference = (wanted == 0 ? default_reference : std::min(wanted, 255U)) / 255.0;
    const double most_share = reference / bright_level; // of an image that has no more than the wanted mean
    const auto share = static_cast<double>(bright_share);
    if (!(share > most_share) || most_share >= 1) return static_cast<float>(reference);
    const double all_bright = std::pow(most_share, bright_power);
    const double excess = (std::min(share, 1.0) - most_share) / (1 - most_share);
    return static_cast<float>(reference + (std::min(all_bright, reference) - reference) * excess);
}

auto_step calc_auto_step(float brightness, float reference, const exposure_params& exposure, const gain_params& gain,
                         const iris_params& iris) {
    const double ratio = static_cast<double>(reference) / std::clamp(static_cast<double>(brightness), 0.004, 1.0);
    const int_range exposures = exposure_range(exposure), irises = iris_range(iris);
    const bool steer_exposure = is_steered(exposure), steer_gain = is_steered(gain), steer_iris = is_steered(iris);
    const auto limit_gain = [low = std::min(gain.min, gain.max), high = std::max(gain.min, gain.max)](float v) {
        return std::isfinite(v) ? std::clamp(v, low, high) : low;
    };

    const std::int64_t iris_now = std::clamp<std::int64_t>(iris.current, least_int, most_int);
    auto_step now{to_int(std::round(static_cast<double>(exposure.current))), gain.current,
                  static_cast<std::int32_t>(iris_now)};
    if (steer_exposure) now.exposure = exposures.limit(now.exposure);
    if (steer_gain) now.gain = limit_gain(now.gain);
    if (steer_iris) now.iris = irises.limit(now.iris);
    if (ratio >= 0.96 && ratio <= 1.04) return now;

    auto_step next = now;
    if (steer_exposure) {
        const std::int32_t wanted = to_int(now.exposure * (ratio + 2) / 3);
        const double half = static_cast<double>(std::isfinite(exposure.granularity) ? exposure.granularity : 0.0F) / 2;
        if (!(std::abs(static_cast<double>(wanted) - now.exposure) < half)) next.exposure = exposures.limit(wanted);
    }
    if (steer_iris) next.iris = irises.limit(to_int(std::max(now.iris, 1) * (ratio + 3) * 0.25));
    if (steer_gain) {
        const double unit = std::isfinite(gain.per_doubling) ? static_cast<double>(gain.per_doubling) : 0;
        next.gain = limit_gain(static_cast<float>(
            gain.logarithmic ? static_cast<double>(now.gain) + unit * std::log2(std::max(ratio, 1e-3)) * gain_part
                             : static_cast<double>(now.gain) * (ratio + 2) / 3));
    }

    const bool iris_in_turn = !iris.separate;
    auto_step step = now;
    if (next.gain < now.gain)
        step.gain = next.gain;
    else if (iris_in_turn && next.iris < now.iris)
        step.iris = next.iris;
    else if (next.exposure != now.exposure)
        step.exposure = next.exposure;
    else if (iris_in_turn && next.iris != now.iris)
        step.iris = next.iris;
    else if (next.gain != now.gain)
        step.gain = next.gain;
    else
        step.iris = next.iris;
    return step;
}

} // namespace auto_alg
