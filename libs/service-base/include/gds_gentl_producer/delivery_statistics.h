// Rate and transform time of delivered frames, computed anew every three seconds.
#pragma once

#include <atomic>
#include <cstdint>

namespace gds_producer {

// frame() and reset() by one thread at a time (the one that delivers); last() from any thread.
class delivery_statistics final {
public:
    struct figures {
        double frames_per_second = 0;
        uint64_t avg_transform_us = 0;
    };
    static constexpr uint64_t interval_us = 3'000'000;

    void reset() noexcept {
        begin_us = frames = transform_us = 0;
        frames_per_second = 0;
        avg_transform_us = 0;
    }
    // `now_us` of a steady clock, `spent_us` on transforming this frame. True when the interval ends with it.
    bool frame(uint64_t now_us, uint64_t spent_us) noexcept {
        if (begin_us == 0) { // the first frame opens the interval and is counted by none
            begin_us = now_us;
            return false;
        }
        ++frames;
        transform_us += spent_us;
        const uint64_t passed = now_us - begin_us;
        if (passed < interval_us) return false;
        frames_per_second = static_cast<double>(frames) * 1e6 / static_cast<double>(passed);
        avg_transform_us = transform_us / frames;
        begin_us = now_us;
        frames = transform_us = 0;
        return true;
    }
    [[nodiscard]] figures last() const noexcept { return {frames_per_second, avg_transform_us}; }

private:
    uint64_t begin_us = 0, frames = 0, transform_us = 0;
    std::atomic<double> frames_per_second{0};
    std::atomic<uint64_t> avg_transform_us{0};
};

} // namespace gds_producer
