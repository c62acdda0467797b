#include "fit_power_curve.h"

#include "../kernels/power_curve.h"

#include <algorithm>
#include <cmath>

namespace img_pipe {

namespace {

class fitted_curve {
public:
    fitted_curve(double exponent_, power_curve& curve_) : exponent(exponent_), curve(curve_) {
        curve = {};
        curve.rising = exponent > 1;
        for (std::uint32_t piece = 0; piece < 8; ++piece) fit_piece(piece);
        curve.base[7] = count(curve.base[7] + 65535.0 - in_top_octave(curve, 0xFFFE)); // white stays
        for (std::uint32_t octave = 0; octave < 15; ++octave) fit_octave(octave);
    }

private:
    static constexpr double most = 65535;
    static std::uint16_t count(double v) { return static_cast<std::uint16_t>(std::lround(std::clamp(v, 0.0, most))); }
    double power(double v) const { return most * std::pow(v / most, exponent); }

    void fit_piece(std::uint32_t piece) {
        const auto at = [&](double z) { return power(32768 + (piece + z) * 4096); };
        const double bend = 2 * (at(0) + at(1) - 2 * at(0.5));
        curve.bend[piece] = count(std::abs(bend));
        curve.slope[piece] = count(at(1) - at(0) - bend);
        curve.base[piece] = count(at(0));
        // What rounding down takes away is given back, so that errors are alike to both sides.
        double low = most, high = -most;
        for (std::uint32_t place = piece << 13; place < (piece + 1) << 13; place += 64) {
            const double error = in_top_octave(curve, place) - power(32768 + place / 2.0);
            low = std::min(low, error);
            high = std::max(high, error);
        }
        curve.base[piece] = count(curve.base[piece] - (low + high) / 2);
    }

    // The factor of those near the ideal one whose largest error is least.
    void fit_octave(std::uint32_t octave) {
        const auto ideal = static_cast<std::int32_t>(65536 * (1 - std::pow(2.0, -exponent * (15 - octave))));
        const std::uint32_t step = std::max(1U, (1U << octave) / 64);
        std::int32_t best = 0;
        double least = most;
        for (std::int32_t less = std::max(0, ideal - 2); less <= std::min(65535, ideal + 4); ++less) {
            set_octave(octave, less);
            double worst = 0;
            for (std::uint32_t v = 1U << octave; v < 2U << octave; v += step)
                worst = std::max(worst, std::abs(on_power_curve(curve, static_cast<std::uint16_t>(v)) - power(v)));
            if (worst >= least) continue;
            least = worst;
            best = less;
        }
        set_octave(octave, best);
    }
    void set_octave(std::uint32_t octave, std::int32_t less) {
        const std::uint32_t i = octave + 1;
        curve.less_low[i] = static_cast<std::uint8_t>(less & 0xFF);
        curve.less_high[i] = static_cast<std::uint8_t>(less >> 8);
    }

    double exponent;
    power_curve& curve;
};

} // namespace

bool fit_power_curve(double exponent, const std::uint16_t* words, power_curve& curve, std::uint16_t* entries) {
    fitted_curve(exponent, curve);
    for (std::uint32_t v = 0; v < 65536; ++v) {
        entries[v] = on_power_curve(curve, static_cast<std::uint16_t>(v));
        if (std::abs(entries[v] - words[v]) > power_curve_error) return false;
    }
    return true;
}

} // namespace img_pipe
