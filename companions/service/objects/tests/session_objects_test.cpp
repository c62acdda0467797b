// The objects that clients hold, over cameras in this process: who may have what, and that it all comes back.
#include "../../gvcp/tests/test_cameras.h"

#include "../device_object.h"
#include "../interface_object.h"
#include "../service_object.h"

#include <ipc_rpc/limits.h>

#include <algorithm>
#include <set>

using namespace service;
using gvcp_master::eventually;
using gvcp_master::own_address;

namespace {

class SessionObjects : public testing::Test {
protected:
    void add_camera(uint32_t n, const std::function<void(camera_sim::camera_options&)>& change = {}) {
        auto options = gvcp_master::small_camera(n);
        options.serial = "S" + std::to_string(n);
        if (change) change(options);
        cameras.push_back(gvcp_master::start(std::move(options)));
        chosen.discovery.addresses.push_back(own_address(n));
    }
    void find_cameras() {
        chosen.discovery.networks = false;
        chosen.discovery.interval = std::chrono::milliseconds{100};
        core = std::make_shared<service_core>(chosen);
        ASSERT_TRUE(
            eventually([&] { return core->discovery().scan(std::chrono::seconds{2}) && seen() == cameras.size(); }));
    }
    size_t seen() {
        size_t count = 0;
        for (const auto& entry : core->discovery().list()) {
            if (!entry.devices.empty()) name = entry.network.name;
            count += entry.devices.size();
        }
        return count;
    }
    static std::shared_ptr<client_session> new_client() {
        return std::make_shared<client_session>([](uint64_t) {}, std::nullopt);
    }
    std::shared_ptr<interface_object> open_interface(std::shared_ptr<client_session> client) {
        const auto opened = service_object{core, std::move(client)}.open_interface(name);
        EXPECT_TRUE(opened);
        return *opened;
    }
    static std::string only_id(interface_object& interface) { return interface.enum_devices()->at(0).id; }

    service_core::options chosen;
    std::vector<std::unique_ptr<camera_sim::camera>> cameras;
    std::shared_ptr<service_core> core;
    std::string name; // of the interface with the cameras
};

} // namespace

TEST_F(SessionObjects, WatchersOfClientsThatLeftDoNotPileUp) {
    add_camera(1);
    find_cameras();
    for (int i = 0; i < 1000; ++i) static_cast<void>(open_interface(new_client()));
    EXPECT_LE(core->watcher_count(), 4U);
}

TEST_F(SessionObjects, SeatsAndNumbersComeBackOverALongLife) {
    add_camera(1);
    find_cameras();
    const auto client = new_client();
    const auto interface = open_interface(client);
    const std::string id = only_id(*interface);
    const auto open = [&] { return interface->open_device(id, ipc_rpc::open_access::read_only); };
    for (int i = 0; i < 300; ++i) ASSERT_TRUE(open()) << i;
    std::vector<std::shared_ptr<device_object>> held;
    std::set<uint64_t> numbers;
    for (auto device = open(); device; device = open()) {
        held.push_back(*device);
        numbers.insert((*device)->service_info().device_lost_notification_id);
        numbers.insert((*device)->service_info().event_notification_id);
    }
    EXPECT_EQ(held.size(), ipc_rpc::limits::most_open_devices);
    EXPECT_EQ(numbers.size(), 2 * held.size());
    EXPECT_FALSE(numbers.contains(0));
    EXPECT_EQ(open().error(), make_error_code(ipc_rpc::status::resource_exhausted));
    held.pop_back();
    EXPECT_TRUE(open());
    held.clear();

    std::vector<std::shared_ptr<client_session::number>> all;
    while (auto number = client->allocate()) all.push_back(std::move(number));
    EXPECT_EQ(all.size(), ipc_rpc::limits::most_numbers - 2) << "two are the interface's";
    EXPECT_EQ(service_object(core, client).open_interface(name).error(),
              make_error_code(ipc_rpc::status::resource_exhausted));
}

// A minute's patience with a camera that is silent ends when the client's connection does.
TEST_F(SessionObjects, AnAbandonedDeviceWaitsForNothing) {
    add_camera(1);
    find_cameras();
    const auto interface = open_interface(new_client());
    auto device = *interface->open_device(only_id(*interface), ipc_rpc::open_access::control);
    cameras[0]->set_silent(true);
    std::thread reader{[device] { EXPECT_EQ(device->read_mem(0, 4, 60'000).error(), std::errc::operation_canceled); }};
    device->abandon();
    reader.join();
    cameras[0]->set_silent(false);
    device.reset();
    EXPECT_TRUE(interface->open_device(only_id(*interface), ipc_rpc::open_access::control)) << "it was given back";
}
