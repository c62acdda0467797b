// Cameras in this process on addresses of its own.
#pragma once

#include "../../../../libs/service-base/tests/support.h"

#include <camera_sim/camera.h>
#include <gds_shared/gigecam_error.h>
#include <gige/udp_socket.h>
#include <gvcp/device_control.h>

#include <gtest/gtest.h>
#include <unistd.h>

namespace gvcp_master {

// 127.128.0.0 and up, apart from the camera's own tests.
inline uint32_t own_address(uint32_t n) { return 0x7F800000 | (static_cast<uint32_t>(::getpid()) & 0x3FFF) << 8 | n; }

inline camera_sim::camera_options small_camera(uint32_t n) {
    camera_sim::camera_options options;
    options.address = own_address(n);
    options.sensor_width = 320;
    options.sensor_height = 240;
    options.reboot_ms = 50;
    return options;
}

inline std::unique_ptr<camera_sim::camera> start(camera_sim::camera_options options) {
    auto started = camera_sim::camera::start(std::move(options));
    EXPECT_TRUE(started) << started.error().message();
    return std::move(*started);
}

inline std::unique_ptr<device_control> open(const camera_sim::camera& cam, device_control::options options = {}) {
    options.device = {cam.address(), gige::gvcp::port};
    if (options.local_address == 0) options.local_address = own_address(250);
    auto opened = device_control::open(std::move(options));
    EXPECT_TRUE(opened) << (opened ? "" : opened.error().message());
    return opened ? std::move(*opened) : nullptr;
}

using test_support::eventually;

} // namespace gvcp_master
