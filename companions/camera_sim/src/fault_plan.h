// Seeded decisions about what goes wrong with the packets of one direction.
#pragma once

#include <camera_sim/camera.h>

#include <random>

namespace camera_sim {

class dice {
public:
    explicit dice(uint64_t seed) : generator{seed} {}
    [[nodiscard]] bool happens(double share) {
        return share > 0 && static_cast<double>(generator() >> 11) * 0x1p-53 < share;
    }
    [[nodiscard]] uint64_t below(uint64_t bound) { return generator() % bound; }
    [[nodiscard]] uint64_t word() { return generator(); }

private:
    std::mt19937_64 generator;
};

// Losses that come in bursts of a mean length while the overall share stays the one asked for.
class loss_process {
public:
    [[nodiscard]] bool lose(dice& rolled, double share, double burst_length) {
        if (share <= 0) return false;
        if (share >= 1) return true;
        const double length = burst_length < 1 ? 1 : burst_length;
        if (!in_burst) in_burst = rolled.happens(share / (share + length * (1 - share)));
        if (!in_burst) return false;
        in_burst = !rolled.happens(1 / length);
        return true;
    }

private:
    bool in_burst = false;
};

} // namespace camera_sim
