// A consumer that looks at the pictures of a simulated camera with a scene, and at what the camera is set to.
#pragma once

#include "support/test_system.h"

#include <array>
#include <functional>

namespace test_support {

// One delivered frame of 8 bits, and the camera's values when it came.
struct loop_sample {
    uint64_t frame = 0;            // from 0; also its place
    std::array<double, 3> mean{};  // of red, green and blue, 0 to 1; a grey picture has one mean
    double luma = 0;               // 0.299, 0.587, 0.114
    double exposure = 0, gain = 0; // us, dB
    int64_t iris = 0, focus = 0;
};

using feature_values = std::vector<std::pair<std::string, std::string>>; // "!" in place of a value: a command

void set_features(open_camera& camera, const feature_values& values);

// Streams for so many frames, or until a dozen after `over` says so; frames of every 2 x 2 cell red, green, green,
// blue.
[[nodiscard]] std::vector<loop_sample> run_loop(open_camera& camera, size_t frames,
                                                const std::function<bool()>& over = {});

} // namespace test_support
