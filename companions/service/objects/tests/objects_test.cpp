// The objects that clients hold: several sessions, equal cameras, bounds, a long life.
#include "objects_fixture.h"

#include <camera_sim/firmware_image.h>
#include <gds_helper/log.h>
#include <objects/address_assignment.h>
#include <objects/service_object.h>
#include <support/log_capture.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <set>
#include <thread>

namespace service {
namespace {

namespace boot = gige::gvcp::reg;

TEST_F(Objects, AccessStatesAreEachClientsOwn) {
    start_core_and_camera();
    const uint32_t address = cam->address();
    EXPECT_EQ(one->state(address), 0U);
    auto reader = other->open(address, open_access::read_only);
    EXPECT_EQ(one->state(address), 0U) << "who reads has no control";
    auto device = one->open(address);
    ASSERT_TRUE(core->discovery().scan(milliseconds{5000})); // the camera says that it is controlled
    EXPECT_EQ(one->state(address), 0U) << "by itself";
    EXPECT_EQ(other->state(address), held);
    EXPECT_EQ(other->interface.open_device(other->list().front().id, open_access::control).error(),
              gigecam_errc::access_denied);
    device.reset();
    EXPECT_EQ(one->state(address), 0U) << "at once";
    EXPECT_EQ(other->state(address), 0U);

    auto foreign = ::gvcp_master::open(*cam); // another host's
    ASSERT_TRUE(foreign);
    EXPECT_TRUE(eventually([&] { return one->state(address) == held && other->state(address) == held; }));
    foreign.reset();
    EXPECT_TRUE(eventually([&] { return one->state(address) == 0; }));
}

// One process ends, the next one starts: what the first had is let go of while the next one asks for it.
TEST_F(Objects, WhoOpensWaitsForTheOneThatCloses) {
    start_core_and_camera();
    auto closing = one->open(cam->address());
    std::atomic<bool> asking = false;
    std::jthread closer{[&] {
        while (!asking) std::this_thread::yield();
        std::this_thread::sleep_for(milliseconds{100});
        closing.reset();
    }};
    asking = true;
    EXPECT_TRUE(other->open(cam->address()));
}

TEST_F(Objects, ALostCameraIsFreeForOthers) {
    start_core_and_camera();
    auto device = one->open(cam->address());
    ASSERT_FALSE(device->control().write_register(boot::heartbeat_timeout, 500));
    EXPECT_EQ(other->state(cam->address()), held);
    cam->reboot();
    const uint64_t lost = device->service_info().device_lost_notification_id;
    EXPECT_TRUE(eventually([&] { return (one->raised >> lost & 1) == 1; }));
    EXPECT_TRUE(eventually([&] { return other->state(cam->address()) == 0; })) << "though the first still has it open";
    EXPECT_TRUE(other->open(cam->address()));
}

TEST_F(Objects, EqualCamerasHaveIdsOfTheirOwn) {
    std::vector<std::unique_ptr<camera_sim::camera>> cameras;
    for (const char* serial : {"TWIN", "TWIN", "SINGLE", ""}) {
        auto options = small_camera(static_cast<uint32_t>(cameras.size() + 1));
        options.serial = serial;
        cameras.push_back(start(options));
    }
    start_core({1, 2, 3, 4});
    std::set<std::string> ids;
    for (const auto& each : one->list()) {
        ids.insert(each.id);
        const auto device = one->interface.open_device(each.id, open_access::read_only);
        ASSERT_TRUE(device);
        EXPECT_EQ((*device)->control().device().address, each.net_info.ip) << each.id;
        EXPECT_FALSE(each.id.ends_with('-')) << each.id;
    }
    EXPECT_EQ(ids.size(), 4U);
    EXPECT_TRUE(ids.contains("Orv-SimCam-SINGLE"));
    EXPECT_TRUE(ids.contains("Orv-SimCam-TWIN@" + gige::to_string(own_address(1))));
    EXPECT_FALSE(one->interface.open_device("Orv-SimCam-TWIN", open_access::read_only));
}

TEST_F(Objects, TheOfferedDocumentHasBounds) {
    auto options = small_camera(1);
    options.zipped_document = true;
    cam = start(options);
    start_core({1});
    const auto device = one->open(cam->address());
    constexpr uint64_t timeout = 3000;
    const uint64_t somewhere = 0x1000000000000;
    EXPECT_FALSE(device->read_mem(somewhere, 1, timeout)) << "before it was asked for";
    const auto urls = device->url_list();
    ASSERT_TRUE(urls);
    const auto url = parse_document_url(urls->front().url);
    ASSERT_EQ(url.size, cam->document().size());
    const auto read = [&](uint64_t offset, uint64_t size) -> std::string {
        const auto got = device->read_mem(url.address + offset, size, timeout);
        return got ? std::string{reinterpret_cast<const char*>(got->data()), got->size()} : "error";
    };
    EXPECT_EQ(read(0, url.size), cam->document());
    EXPECT_EQ(read(url.size - 3, 3), cam->document().substr(url.size - 3));
    EXPECT_EQ(read(url.size, 0), "");
    EXPECT_EQ(read(url.size, 1), "error");
    EXPECT_EQ(read(0, url.size + 1), "error");
    EXPECT_EQ(read(url.size - 1, 2), "error");
    EXPECT_EQ(read(0xFFFFFFFFFFFFFFFF - url.address, 1), "error");
    EXPECT_EQ(read(1, uint64_t{1} << 40), "error");
    EXPECT_FALSE(device->write_mem(url.address, std::array<std::byte, 4>{}, timeout));
    EXPECT_FALSE(device->read_mem(0x100000000 - 4, 8, timeout)) << "nor beyond the camera's own";

    auto stream = device->acquire_stream();
    ASSERT_TRUE(stream);
    EXPECT_EQ(device->acquire_stream().error(), gigecam_errc::busy) << "one at a time";
    (*stream)->abandon(); // while a call on it runs
    const auto next = device->acquire_stream();
    ASSERT_TRUE(next);
    stream = {};
    EXPECT_EQ(device->acquire_stream().error(), gigecam_errc::busy) << "that is the next one's";
}

// Lines of cameras are of one model, mostly.
TEST_F(Objects, AnEqualDocumentTakesTheClientsRoomOnce) {
    std::vector<std::unique_ptr<camera_sim::camera>> cameras;
    for (const uint32_t n : {1U, 2U, 3U}) {
        auto options = small_camera(n);
        options.zipped_document = true;
        if (n == 3) options.document = cameras[0]->document() + '\n';
        cameras.push_back(start(options));
    }
    const std::string document = cameras[0]->document();
    ASSERT_TRUE(cameras[1]->document() == document);
    start_core({1, 2, 3});
    auto& room = *one->session->document_bytes();
    const uint64_t before = ipc_rpc::limits::most_document_bytes - document.size() * 3 / 2;
    ASSERT_TRUE(room.take(before));
    auto first = one->open(own_address(1)), second = one->open(own_address(2)), other_model = one->open(own_address(3));
    EXPECT_TRUE(first->url_list());
    ASSERT_TRUE(second->url_list());
    EXPECT_EQ(error_of(other_model->url_list()), make_error_code(ipc_rpc::status::resource_exhausted));
    first.reset();
    const auto url = parse_document_url(second->url_list()->front().url);
    const auto kept = second->read_mem(url.address, url.size, 3000);
    ASSERT_TRUE(kept);
    EXPECT_TRUE(std::string_view(reinterpret_cast<const char*>(kept->data()), kept->size()) == document);
    EXPECT_GT(room.held(), before);
    second.reset();
    EXPECT_EQ(room.held(), before);
    EXPECT_TRUE(other_model->url_list());
}

// What a camera's features take is no reason for it to have no document.
TEST_F(Objects, WithoutRoomForItsFeaturesACameraHasItsOwnDocumentAndTheLogSaysSo) {
    software_features = true;
    start_core_and_camera();
    ASSERT_TRUE(one->session->document_bytes()->take(ipc_rpc::limits::most_document_bytes));
    const auto device = one->open(cam->address());
    const test_support::log_capture log{gds_helper::log::main_logger()};
    const auto urls = device->url_list();
    ASSERT_TRUE(urls);
    EXPECT_EQ(parse_document_url(urls->front().url).size, cam->document().size());
    EXPECT_EQ(log.count("without software features"), 1U);
}

TEST_F(Objects, ThePortOfASessionThatWasKilledIsTakenUp) {
    scripted_camera scripted{own_address(1)};
    scripted.set(boot::heartbeat_timeout, 600'000); // it would keep the dead one for ten minutes
    start_core({1});
    {
        const auto before = one->open(own_address(1));
        EXPECT_EQ(core->ports().port_of(core->discovery().list().front().devices.front().mac),
                  before->control().local().port);
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder)) << "an orderly end leaves nothing";
    const auto dead = static_cast<uint16_t>(20'000 + ::getpid() % 10'000); // one that no socket is given
    const auto lo = core->discovery().list().front();
    scripted.hand_control_to({lo.network.subnets.front().address, dead});
    std::ofstream{folder / "control-00007F800000"} << "no number";
    const uint64_t mac = lo.devices.front().mac;
    core->ports().note(mac, dead, nullptr);
    const auto device = one->open(own_address(1));
    EXPECT_EQ(device->control().local().port, dead);
    EXPECT_EQ(core->ports().port_of(mac), dead) << "for the next one";
    EXPECT_EQ(core->ports().port_of(0x7F800000), 0) << "no number";
    EXPECT_EQ(core->ports().port_of(1), 0);
}

TEST_F(Objects, EventsThatNobodyFetchesAreBoundedAndTheNewestStay) {
    start_core_and_camera();
    const auto device = one->open(cam->address());
    constexpr uint16_t count = 1100;
    for (uint16_t i = 0; i < count; ++i) {
        cam->send_event(i, {});
        if (i % 50 != 49) continue;
        ASSERT_TRUE(eventually([&] { return cam->stats().events_acknowledged == i + 1U; }));
    }
    std::vector<uint16_t> got;
    ASSERT_TRUE(eventually([&] { // the last was acknowledged before it was queued
        for (const auto& each : device->take_events()) got.push_back(gige::load16(&each.payload[10]));
        return !got.empty() && got.back() == count - 1;
    }));
    EXPECT_GE(got.size(), 1024U);
    EXPECT_LT(got.size(), 1024U + 2);
    EXPECT_GE(std::ranges::min(got), 50) << "of the first fifty, which all came before the others, none is left";
    EXPECT_TRUE(device->take_events().empty());
}

// Its end waits for the camera, which has given control to the next one already.
TEST_F(Objects, TheLateEndOfASessionTakesNothingFromTheNext) {
    std::mutex mutex;
    std::optional<scripted_camera::request> farewell;
    scripted_camera slow{own_address(1), [&](scripted_camera& self, const scripted_camera::request& got) {
                             if (!got.is(gige::gvcp::command::write_reg, boot::privilege) || got.word(4) != 0)
                                 return false;
                             const std::lock_guard guard{mutex};
                             if (farewell && got.from != farewell->from) return false;
                             if (!farewell) self.take_control_away();
                             farewell = got;
                             self.ask_for_patience(got, 30'000);
                             return true;
                         }};
    start_core({1});
    const uint64_t mac = one->list().front().net_info.mac_address;
    auto former = one->open(own_address(1));
    auto ending = std::async(std::launch::async, [&] { former.reset(); });
    ASSERT_TRUE(eventually([&] { return (std::lock_guard{mutex}, farewell.has_value()); }));
    const auto next = one->open(own_address(1));
    slow.serve(*farewell);
    ending.wait();
    EXPECT_EQ(core->ports().port_of(mac), next->control().local().port);
    EXPECT_EQ(core->holder_of(mac, one->session.get()), service_core::holder::self);
}

// The client would try for itself, and wait for as long.
TEST_F(Objects, ADocumentThatTookTooLongIsNotOffered) {
    scripted_camera slow{own_address(1), [&](scripted_camera&, const scripted_camera::request& got) {
                             if (got.header.code == gige::gvcp::command::read_mem && got.word(0) >= 0x100000)
                                 std::this_thread::sleep_for(milliseconds{1});
                             return false;
                         }};
    slow.set_text(boot::first_url, "local:cam.xml;100000;20000", 512);
    software_features = true; // the service reads it, too
    documents.time = milliseconds{20};
    start_core({1});
    const auto device = one->open(own_address(1));
    EXPECT_EQ(error_of(device->url_list()), std::errc::timed_out);
}

TEST_F(Objects, ADocumentIsOfferedThoughTheServiceGotNoAnswerOnce) {
    scripted_camera mute{own_address(1), [&](scripted_camera&, const scripted_camera::request& got) {
                             return got.is(gige::gvcp::command::read_mem, 0x100000);
                         }};
    const std::string url = "local:cam.xml;100000;200";
    mute.set_text(boot::first_url, url, 512);
    software_features = true;
    start_core({1});
    const auto device = one->open(own_address(1));
    const auto urls = device->url_list();
    ASSERT_TRUE(urls) << urls.error().message();
    EXPECT_EQ(urls->front().url, url);
}

// It answers the search, and nothing yet that was sent to it alone.
TEST_F(Objects, ACameraIsReachableWhenItHasAnswered) {
    std::atomic<bool> answers = false;
    const scripted_camera quiet{own_address(1), [&](scripted_camera&, const scripted_camera::request& got) {
                                    return got.is(gige::gvcp::command::read_reg, boot::privilege) && !answers;
                                }};
    start_core({1});
    const auto status = [&] { return static_cast<ipc_rpc::reachable_status>(one->list().front().reachable_status); };
    ASSERT_TRUE(core->discovery().scan(milliseconds{5000}));
    EXPECT_EQ(status(), ipc_rpc::reachable_status::discovered);
    EXPECT_EQ(one->interface.device_reachable(one->list().front().id).value_or(99), 0U);
    const uint64_t changed = one->interface.service_info()->device_list_notification_id;
    ASSERT_TRUE(eventually([&] { return (one->raised >> changed & 1) == 1; }));
    one->raised = 0;
    answers = true;
    EXPECT_TRUE(eventually([&] { return status() == ipc_rpc::reachable_status::reachable; }));
    EXPECT_TRUE(eventually([&] { return (one->raised >> changed & 1) == 1; })) << "the list has changed";
}

// One is unplugged, another one takes its address: as long as both are listed, the first one's id is not the second.
TEST_F(Objects, AnotherCameraAtTheSameAddressIsNotTakenForTheOneAskedFor) {
    const auto with_mac = [](uint64_t mac) {
        auto options = small_camera(1);
        options.mac = mac;
        options.serial = std::to_string(mac);
        return options;
    };
    cam = start(with_mac(1));
    start_core({1}, rare_search(milliseconds{50}));
    cam.reset();
    cam = start(with_mac(2));
    ASSERT_TRUE(eventually([&] { return core->discovery().scan(milliseconds{5000}) && one->list().size() == 2; }));
    const auto devices = core->discovery().list().front().devices;
    const auto ids = one->list();
    ASSERT_EQ(devices[0].mac, 1U);
    ASSERT_TRUE(devices[0].is_reachable());
    for (const auto access : {open_access::read_only, open_access::control, open_access::exclusive})
        EXPECT_EQ(error_of(one->interface.open_device(ids[0].id, access)), std::errc::host_unreachable);
    EXPECT_EQ(core->firmware().start("lo", ids[0].id, devices[0], camera_sim::make_firmware_package({})),
              std::errc::host_unreachable);
    EXPECT_EQ(run_address_function(*core, "lo", devices[0], "IPConfigDHCPEnable", {}), std::errc::host_unreachable);
    EXPECT_EQ(cam->peek(boot::privilege), 0U);
    EXPECT_TRUE(one->interface.open_device(ids[1].id, open_access::control));
}

// Under exclusive access it does not say who it is; who waits for it sees that when it is his.
TEST_F(Objects, ACameraThatWasWaitedForIsLookedAtBeforeItIsUsed) {
    std::atomic<bool> silent = false;
    scripted_camera camera{own_address(1), [&](scripted_camera& self, const scripted_camera::request& got) {
                               if (!self.controller() || *self.controller() == got.from) return false;
                               if (got.is(gige::gvcp::command::write_reg, boot::privilege) && silent.exchange(false)) {
                                   self.take_control_away(); // for the next to ask
                                   self.set(boot::mac_low, 2);
                               }
                               self.refuse(got, gige::gvcp::status::access_denied);
                               return true;
                           }};
    start_core({1}, rare_search(milliseconds{25}));
    camera.hand_control_to({own_address(8), 1});
    silent = true;
    EXPECT_EQ(error_of(one->interface.open_device(one->list().front().id, open_access::control)),
              std::errc::host_unreachable);
    EXPECT_FALSE(silent) << "it was waited for";
    EXPECT_FALSE(camera.controller()) << "and given back";
}

// Two cameras that say that they have one address: whoever opened the one could get the other.
TEST_F(Objects, CamerasThatCannotBeReachedAreListedAndLeftAlone) {
    scripted_camera twins{own_address(1), [](scripted_camera& self, const scripted_camera::request& got) {
                              if (got.header.code != gige::gvcp::command::discovery) return false;
                              for (const uint32_t mac : {1U, 2U}) {
                                  self.set(boot::mac_low, mac);
                                  self.serve(got);
                              }
                              return true;
                          }};
    start_core({1});
    const auto unreachable = [](const auto& each) {
        return each.reachable_status == static_cast<uint32_t>(ipc_rpc::reachable_status::unreachable);
    };
    ASSERT_TRUE(eventually([&] { return std::ranges::count_if(one->list(), unreachable) == 2; }));
    for (const auto& each : one->list()) {
        for (const auto access : {open_access::read_only, open_access::control, open_access::exclusive})
            EXPECT_EQ(error_of(one->interface.open_device(each.id, access)), std::errc::host_unreachable);
        EXPECT_EQ(error_of(one->interface.upload_firmware(each.id, {})), std::errc::host_unreachable);
    }
    EXPECT_FALSE(twins.controller());
}

TEST_F(Objects, SeatsNumbersAndWatchersComeBackOverALongLife) {
    start_core_and_camera();
    for (int i = 0; i < 1000; ++i) {
        auto fleeting = std::make_shared<client_session>([](uint64_t) {}, std::nullopt);
        ASSERT_TRUE(service_object(core, std::move(fleeting)).open_interface("lo"));
    }
    EXPECT_LE(core->watcher_count(), 4U) << "of clients that left";
    const std::string id = one->list().front().id;
    const auto open = [&] { return one->interface.open_device(id, open_access::read_only); };
    for (int i = 0; i < 300; ++i) ASSERT_TRUE(open()) << i;
}

// What was raised for a device that is closed may not have been looked at yet.
TEST_F(Objects, ANumberGivenBackIsNotTheNextOnes) {
    const auto session = std::make_shared<client_session>([](uint64_t) {}, std::nullopt);
    std::set<uint64_t> given;
    for (std::size_t i = 0; i < ipc_rpc::limits::most_numbers; ++i) given.insert(session->allocate()->get());
    EXPECT_EQ(given.size(), ipc_rpc::limits::most_numbers);
}

// A minute's patience with a silent camera ends when the client's connection does.
TEST_F(Objects, AnAbandonedDeviceWaitsForNothing) {
    start_core_and_camera();
    auto device = one->open(cam->address());
    cam->set_silent(true);
    auto reader = std::async(std::launch::async, [&] { return device->read_mem(0, 4, 60'000).error(); });
    device->abandon();
    EXPECT_EQ(reader.wait_for(std::chrono::seconds{20}), std::future_status::ready);
    EXPECT_EQ(reader.get(), std::errc::operation_canceled);
    cam->set_silent(false);
    device.reset();
    EXPECT_TRUE(other->open(cam->address())) << "it was given back";
}

} // namespace
} // namespace service
