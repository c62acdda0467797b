// Updates whose cameras do not do what they should, or do it unseen.
#include <camera_sim/firmware_image.h>
#include <gvcp/firmware_upload.h>
#include <gvcp/tests/test_cameras.h>
#include <objects/interface_object.h>

#include <future>

namespace {

using namespace gvcp_master;
using namespace service;
using gds_shared::gigecam_errc;
namespace boot = gige::gvcp::reg;

class FirmwareUpdates : public testing::Test {
protected:
    void start_core(uint32_t count, const std::function<void(camera_sim::camera_options&)>& change = {},
                    std::chrono::milliseconds interval = milliseconds{100}) {
        service_core::options chosen;
        chosen.discovery = {.networks = false, .interval = interval, .window = milliseconds{50}, .misses = 15};
        chosen.heartbeat_timeout = milliseconds{1000};
        for (uint32_t n = 1; n <= count; ++n) {
            auto options = small_camera(n);
            options.serial = "S" + std::to_string(n);
            if (change) change(options);
            cameras.push_back(start(std::move(options)));
            chosen.discovery.addresses.push_back(own_address(n));
        }
        core = std::make_shared<service_core>(std::move(chosen));
        const auto session = std::make_shared<client_session>([](uint64_t) {}, std::nullopt);
        interface.emplace(core, session, "lo");
        ASSERT_TRUE(eventually(
            [&] { return core->discovery().scan(milliseconds{1000}) && interface->enum_devices()->size() == count; }));
    }
    static std::string id(uint32_t n) { return "Orv-SimCam-S" + std::to_string(n); }
    std::error_code upload(uint32_t n, const camera_sim::firmware_package_options& options = {}) {
        return error_of(interface->upload_firmware(id(n), camera_sim::make_firmware_package(options)));
    }
    std::string state(uint32_t n) {
        const auto text = interface->firmware_state(id(n));
        return text ? *text : "none: " + text.error().message();
    }
    bool comes_to(uint32_t n, const std::string& beginning) {
        return eventually([&] { return state(n).starts_with(beginning); });
    }

    std::vector<std::unique_ptr<camera_sim::camera>> cameras;
    std::shared_ptr<service_core> core;
    std::optional<interface_object> interface;
};

// The version says nothing when it is the one that the camera had.
TEST_F(FirmwareUpdates, ASessionLostDuringTheInstallationIsNoRestart) {
    start_core(1, [](camera_sim::camera_options& options) { options.install_ms = 4000; });
    auto& camera = *cameras[0];
    ASSERT_FALSE(upload(1, {.version = "1.0.0"}));
    ASSERT_TRUE(comes_to(1, "Installing"));
    camera.set_deaf(true);
    ASSERT_TRUE(comes_to(1, "Restarting")) << "as far as the service knows: " << state(1);
    camera.set_deaf(false);
    ASSERT_TRUE(eventually([&] { return interface->enum_devices()->size() == 1; }));
    ASSERT_TRUE(comes_to(1, "Finished")) << state(1);
    EXPECT_EQ(camera.stats().reboots, 1U) << "it was still installing";
}

// Nothing of the camera itself keeps it from being moved once it restarts.
TEST_F(FirmwareUpdates, ACameraIsNotMovedWhileOneRunsNorUpdatedWhileItIsMoved) {
    start_core(1, [](camera_sim::camera_options& options) { options.reboot_ms = 5000; });
    auto& camera = *cameras[0];
    const auto moved = [&] { return error_of(interface->force_ip(camera.mac(), own_address(9), 0xFF000000, 0)); };
    {
        const address_turns::turn turn{core->addresses(), camera.mac(), {}};
        EXPECT_EQ(upload(1), gigecam_errc::busy);
        EXPECT_EQ(state(1), "Refused: the camera is being given an address");
        EXPECT_EQ(camera.peek(boot::privilege), 0U);
    }
    ASSERT_FALSE(upload(1)) << state(1);
    EXPECT_EQ(moved(), gigecam_errc::busy);
    ASSERT_TRUE(comes_to(1, "Restarting")) << state(1);
    EXPECT_EQ(moved(), gigecam_errc::busy);
    ASSERT_TRUE(comes_to(1, "Finished")) << state(1);
    EXPECT_NE(moved(), gigecam_errc::busy);
}

TEST_F(FirmwareUpdates, ARefusalSaysWhyAndNotWhyAnEarlierOneWas) {
    start_core(5, [](camera_sim::camera_options& options) {
        options.faults.pending_every = 3;
        options.faults.pending_ms = 200;
    });
    EXPECT_EQ(upload(5, {.model = "Other"}), gigecam_errc::invalid_parameter);
    EXPECT_EQ(state(5), "Refused: the package is for Orv Other, the camera is Orv SimCam");
    for (uint32_t n = 1; n <= 4; ++n) ASSERT_FALSE(upload(n)) << state(n);
    EXPECT_TRUE(upload(5));
    EXPECT_EQ(state(5), "Refused: 4 updates are under way already");
    EXPECT_EQ(upload(1), gigecam_errc::busy);
    EXPECT_TRUE(state(1).starts_with("Uploading")) << state(1);
    cameras[4]->set_silent(true);
    ASSERT_TRUE(eventually([&] { return interface->enum_devices()->size() == 4; }));
    EXPECT_EQ(upload(5), std::errc::no_such_device);
    EXPECT_EQ(state(5), "");
}

// Searches come hours apart: what the last one saw must not keep others from the camera.
TEST_F(FirmwareUpdates, ControlIsGivenBackForAllToSee) {
    start_core(
        1,
        [](camera_sim::camera_options& options) {
            options.faults.pending_every = 3;
            options.faults.pending_ms = 200;
        },
        std::chrono::hours{1});
    ASSERT_FALSE(upload(1));
    ASSERT_TRUE(eventually([&] {
        return core->discovery().scan(milliseconds{1000}) &&
               interface->enum_devices()->front().control_state == ipc_rpc::control_state_held;
    }));
    cameras[0]->set_silent(true);
    ASSERT_TRUE(comes_to(1, "Failed: ")) << state(1);
    EXPECT_EQ(interface->enum_devices()->front().control_state, 0U);
    const auto next = std::async(std::launch::async, [&] { return upload(1); });
    EXPECT_TRUE(eventually([&] { return state(1).empty(); })) << "that was the last one's end, not this one's";
}

TEST_F(FirmwareUpdates, ACameraThatTakesForEverIsGivenUp) {
    auto options = small_camera(1);
    options.faults.pending_every = 1;
    options.faults.pending_ms = 20;
    const auto slow = start(options);
    const auto device = open(*slow);
    const auto package = read_firmware_package(camera_sim::make_firmware_package({}));
    ASSERT_TRUE(package);
    const auto done = write_firmware(*device, *package, {}, [](const std::string&) {}, {.upload = milliseconds{200}});
    ASSERT_FALSE(done);
    EXPECT_TRUE(done.error().starts_with("the upload took too long and was broken off at ")) << done.error();
}

// Cameras are easily invented.
TEST_F(FirmwareUpdates, RefusalsAreRememberedUpToABound) {
    start_core(0, [](camera_sim::camera_options&) {});
    firmware_updates updates{core->discovery(), core->addresses(), {}, {}};
    const auto name = [](std::size_t n) { return "camera " + std::to_string(n); };
    for (std::size_t n = 0; n <= firmware_updates::most_remembered; ++n) {
        discovery::found_device unreachable;
        unreachable.mac = n;
        EXPECT_EQ(updates.start("lo", name(n), unreachable, {}), std::errc::host_unreachable);
    }
    EXPECT_FALSE(updates.state("lo", name(0)));
    EXPECT_TRUE(updates.state("lo", name(1)));
    EXPECT_TRUE(updates.state("lo", name(firmware_updates::most_remembered)));
}

} // namespace
