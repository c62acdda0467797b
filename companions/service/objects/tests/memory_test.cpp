// No memory, at each place in turn where an end asks for some: it is an end all the same.
#include <camera_sim/firmware_image.h>
#include <gvcp/tests/test_cameras.h>
#include <ipc_rpc/status.h>
#include <objects/device_object.h>
#include <objects/interface_object.h>
#include <support/failing_memory.h>
#include <support/temporary_folder.h>

#include <new>
#include <utility>

namespace {

using namespace gvcp_master;
using namespace service;

class Memory : public testing::Test {
protected:
    Memory() {
        service_core::options chosen;
        chosen.discovery = {.networks = false,
                            .addresses = {own_address(1)},
                            .interval = std::chrono::hours{1},
                            .window = milliseconds{50}};
        chosen.port_folder = folder.path;
        chosen.image_features = false;
        core = std::make_shared<service_core>(std::move(chosen));
        interface.emplace(core, std::make_shared<client_session>([](uint64_t) {}, std::nullopt), "lo");
        EXPECT_TRUE(eventually(
            [&] { return core->discovery().scan(milliseconds{1000}) && interface->enum_devices()->size() == 1; }));
    }
    // Until nothing asks for memory any more. `fails(place)` says whether something did.
    static void at_each_place(const std::function<bool(int place)>& fails) {
        int place = 0;
        for (; place < 200; ++place) {
            SCOPED_TRACE(place);
            const bool failed = fails(place);
            if (!failed || HasFailure()) break;
        }
        EXPECT_GT(place, 0);
        EXPECT_LT(place, 200);
    }

    const test_support::temporary_folder folder;
    const std::unique_ptr<camera_sim::camera> camera = start(small_camera(1));
    std::shared_ptr<service_core> core;
    std::optional<interface_object> interface;
};

TEST_F(Memory, ACameraIsClosedWithoutIt) {
    at_each_place([&](int place) {
        const auto id = interface->enum_devices()->front().id;
        auto device = interface->open_device(id, ipc_rpc::open_access::control);
        EXPECT_TRUE(device);
        failing_memory::fail(place);
        device = std::unexpected(std::error_code{});
        return failing_memory::stop() != 0;
    });
}

TEST_F(Memory, AFirmwareUpdateEndsWithoutItAndKeepsNoPlace) {
    const auto found = core->discovery().list().front().devices.front();
    const auto package = camera_sim::make_firmware_package({});
    at_each_place([&](int place) {
        std::stop_source ending;
        const auto asking = std::this_thread::get_id();
        firmware_updates updates{core->discovery(), core->addresses(), ending.get_token(),
                                 [&](const std::string&, uint64_t, const std::string&) {
                                     if (std::this_thread::get_id() == asking || !ending.request_stop()) return;
                                     failing_memory::fail(place); // of the update's thread
                                 }};
        EXPECT_FALSE(updates.start("lo", "camera", found, package));
        EXPECT_TRUE(eventually([&] { return updates.state("lo", "camera")->starts_with("Failed: "); }));
        EXPECT_NE(updates.start("lo", "camera", found, package), gds_shared::gigecam_errc::busy);
        return failing_memory::stop() != 0; // the thread is joined
    });
}

TEST_F(Memory, AFirmwareUpdateIsRefusedWithoutItAndKeepsNoPlace) {
    const auto found = core->discovery().list().front().devices.front();
    const auto package = camera_sim::make_firmware_package({});
    bool is_first = true;
    firmware_updates updates{
        core->discovery(), core->addresses(), {}, [&](const std::string&, uint64_t, const std::string&) {
            if (!std::exchange(is_first, false)) return;
            failing_memory::fail(0); // for what is said of it, too
            throw std::bad_alloc{};
        }};
    EXPECT_EQ(updates.start("lo", "camera", found, package), make_error_code(ipc_rpc::status::resource_exhausted));
    EXPECT_EQ(failing_memory::stop(), 1);
    EXPECT_FALSE(updates.start("lo", "camera", found, package));
    EXPECT_TRUE(eventually([&] { return updates.state("lo", "camera")->starts_with("Finished"); }));
}

} // namespace
