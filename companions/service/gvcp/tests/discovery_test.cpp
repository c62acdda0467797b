#include "test_cameras.h"

#include <camera_sim/registers.h>
#include <gvcp/broadcast_commands.h>
#include <gvcp/discovery.h>

#include <algorithm>
#include <atomic>

namespace {

using namespace gvcp_master;
using gds_shared::gigecam_errc;

gige::network_interface loopback() {
    const auto listed = gige::enumerate_interfaces();
    if (!listed) throw std::system_error(listed.error());
    for (const auto& each : *listed)
        if (each.loopback) return each;
    ADD_FAILURE() << "no loopback interface";
    return {};
}

TEST(GvcpDiscovery, finds_cameras_by_broadcast_and_drops_those_that_fell_silent) {
    auto options = small_camera(1);
    options.user_name = "caf\xE9"; // bytes, not always UTF-8
    const auto one = start(options);
    const auto two = start(small_camera(2));
    std::atomic<int> interface_changes = 0;
    std::atomic<int> device_changes = 0;
    discovery finder{
        {.networks = false, .loopback = true, .interval = milliseconds{50}, .window = milliseconds{100}, .misses = 2},
        {[&] { ++interface_changes; },
         [&](const std::string& name) {
             EXPECT_EQ(name, "lo");
             ++device_changes;
         }}};
    std::optional<discovery::found_device> record;
    ASSERT_TRUE(eventually([&] { return (record = find(finder, one->mac())) && find(finder, two->mac()); }));
    EXPECT_EQ(record->user_name, "caf\xE9");
    EXPECT_EQ(record->address, own_address(1));
    EXPECT_EQ(record->model, "SimCam");
    EXPECT_TRUE(record->reachable);
    EXPECT_TRUE(eventually([&] { return interface_changes > 0; }));
    const int before = device_changes;
    two->set_silent(true);
    EXPECT_TRUE(eventually([&] { return !find(finder, two->mac()); }));
    // The list changes first and is told of after; a busy machine may lose the other camera's answers for a while.
    EXPECT_TRUE(eventually([&] { return device_changes > before; }));
    EXPECT_TRUE(eventually([&] { return find(finder, one->mac()); }));
    EXPECT_FALSE(find(finder, two->mac()));
}

// Several clients may ask for scans at the same time; a camera has its time to answer all the same.
TEST(GvcpDiscovery, scans_without_a_pause_lose_no_camera_sooner) {
    const auto cam = start(small_camera(1));
    discovery finder{{.networks = false,
                      .addresses = {own_address(1)},
                      .interval = std::chrono::minutes{10},
                      .window = milliseconds{20}},
                     {}};
    ASSERT_TRUE(eventually([&] { return finder.scan(milliseconds{5000}) && find(finder, cam->mac()); }));
    cam->set_silent(true);
    for (int i = 0; i < 10; ++i) ASSERT_TRUE(finder.scan(milliseconds{5000}));
    EXPECT_TRUE(find(finder, cam->mac()));
}

TEST(GvcpDiscovery, force_ip_moves_a_camera_and_is_refused_in_use) {
    const auto cam = start(small_camera(1));
    {
        const auto device = open(*cam);
        EXPECT_EQ(force_ip(loopback(), cam->mac(), own_address(7), 0xFF000000, 0), gigecam_errc::access_denied);
        EXPECT_FALSE(device->write_persistent_ip(true, own_address(8), 0xFF000000, 0));
    }
    EXPECT_FALSE(force_ip(loopback(), cam->mac(), own_address(7), 0xFF000000, 0));
    EXPECT_TRUE(eventually([&] { return cam->address() == own_address(7); }));
    EXPECT_FALSE(force_ip(loopback(), cam->mac(), 0, 0, 0));
    EXPECT_TRUE(eventually([&] { return cam->address() == own_address(8); })) << "back to its persistent address";
    EXPECT_EQ(force_ip(loopback(), 0x0200'0000'0001, own_address(9), 0, 0, {}, milliseconds{100}),
              gigecam_errc::timeout);
}

} // namespace
