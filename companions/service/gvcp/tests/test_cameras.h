// Cameras in this process on addresses of its own.
#pragma once

#include <gds_shared/gigecam_error.h>
#include <gige/udp_socket.h>
#include <gvcp/device_control.h>
#include <support/eventually.h>
#include <support/scripted_camera.h>
#include <support/small_camera.h>

#include <gtest/gtest.h>

namespace gvcp_master {

using camera_sim::own_address;
using camera_sim::small_camera;
using camera_sim::start;

inline std::unique_ptr<device_control> open(const camera_sim::camera& cam, device_control::options options = {}) {
    options.device = {cam.address(), gige::gvcp::port};
    if (options.local_address == 0) options.local_address = own_address(250);
    auto opened = device_control::open(std::move(options));
    EXPECT_TRUE(opened) << (opened ? "" : opened.error().message());
    return opened ? std::move(*opened) : nullptr;
}

using test_support::eventually;
using test_support::scripted_camera;

} // namespace gvcp_master
