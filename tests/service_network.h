// Service and cameras of this process at the two ends of a cable, for what only real broadcasts show.
#pragma once

#include "support/two_hosts.h"

#include <camera_sim/camera.h>
#include <gvcp/discovery.h>
#include <gvcp/tests/test_cameras.h>

#include <gtest/gtest.h>

#include <sched.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

namespace test_support {

using gvcp_master::discovery;
using gvcp_master::find;
using std::chrono::milliseconds;

class ServiceNetwork : public testing::Test {
protected:
    void SetUp() override {
        if (!hosts.ready()) GTEST_SKIP() << hosts.why_not();
        for (const int end : {hosts.camera_side(), hosts.consumer_side()}) {
            ASSERT_TRUE(hosts.run(end, {"ip", "address", "flush", "dev", "cable"}));
            // A filter would drop what comes from a subnet without a route.
            for (const std::string which : {"all", "cable"})
                ASSERT_TRUE(hosts.run(end, {"sysctl", "-qw", "net.ipv4.conf." + which + ".rp_filter=0"}));
        }
    }
    void give(int end, const std::string& address) {
        ASSERT_TRUE(hosts.run(end, {"ip", "address", "add", address, "dev", "cable"}));
    }
    // On a thread that lives at one end, as do those it starts.
    static void at(int end, const std::function<void()>& body) {
        std::thread thread{[&] {
            ASSERT_EQ(setns(end, CLONE_NEWNET), 0);
            body();
        }};
        thread.join();
    }
    void start_camera(uint32_t address) {
        camera_sim::camera_options options;
        options.address = address;
        camera = start_camera(options, hosts.camera_side());
    }
    [[nodiscard]] static std::unique_ptr<camera_sim::camera> start_camera(camera_sim::camera_options options, int end) {
        options.sensor_width = 320;
        options.sensor_height = 240;
        std::unique_ptr<camera_sim::camera> result;
        at(end, [&] {
            auto started = camera_sim::camera::start(options);
            ASSERT_TRUE(started) << started.error().message();
            result = std::move(*started);
        });
        return result;
    }

    two_hosts hosts;
    std::unique_ptr<camera_sim::camera> camera;
};

} // namespace test_support
