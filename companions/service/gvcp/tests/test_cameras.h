// Cameras in this process on addresses of its own.
#pragma once

#include <gds_shared/gigecam_error.h>
#include <gige/udp_socket.h>
#include <gvcp/device_control.h>
#include <gvcp/discovery.h>
#include <support/error_of.h>
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
    if (!opened) throw std::system_error(opened.error());
    return std::move(*opened);
}

// The record of a camera, if the list holds it; other tests' cameras may stand beside it.
inline std::optional<discovery::found_device> find(const discovery& finder, uint64_t mac) {
    for (const auto& each : finder.list())
        for (const auto& device : each.devices)
            if (device.mac == mac) return device;
    return {};
}

using test_support::error_of;
using test_support::eventually;
using test_support::scripted_camera;

} // namespace gvcp_master
