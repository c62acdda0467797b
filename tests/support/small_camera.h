// Small cameras in this process, on addresses of its own.
#pragma once

#include <camera_sim/camera.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>

namespace camera_sim {

// Of this process alone, so that tests run side by side.
inline uint32_t own_address(uint32_t n) { return 0x7F400000 | (static_cast<uint32_t>(::getpid()) & 0x3FFF) << 8 | n; }

inline camera_options small_camera(uint32_t n) {
    camera_options options;
    options.address = own_address(n);
    options.sensor_width = 320;
    options.sensor_height = 240;
    options.reboot_ms = 50;
    return options;
}

inline std::unique_ptr<camera> start(camera_options options) {
    auto started = camera::start(std::move(options));
    EXPECT_TRUE(started) << started.error().message();
    return std::move(*started);
}

} // namespace camera_sim
