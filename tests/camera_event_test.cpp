// A camera's own events, from its message channel to the features of its document.
#include "support/scripted_camera.h"
#include "support/test_system.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <span>
#include <thread>

using namespace test_support;
using namespace GenTL;
using testing::HasSubstr;

namespace {

constexpr size_t packet_size = 576;

// What an event port of the document reads: the value of the event at hand.
class event_port final : public GenICam::IDevicePort {
public:
    std::vector<std::byte> body;
    GenICam::result<std::size_t> read(int64_t address, std::span<std::byte> data, unsigned) override {
        const auto at = static_cast<size_t>(address);
        if (at > body.size() || data.size() > body.size() - at)
            return GenICam::fail(GenICam::genicam_errc::generic_error);
        std::memcpy(data.data(), body.data() + at, data.size());
        return data.size();
    }
    std::error_code write(int64_t, std::span<const std::byte>, unsigned) override {
        return make_error_code(GenICam::genicam_errc::generic_error);
    }
};

class CameraEvents : public testing::TestWithParam<const char*> {};

} // namespace

TEST_P(CameraEvents, EachComesOnceInOrderWithItsData) {
    constexpr int frames = 200;
    test_system own;
    std::vector<std::string> options{"--width", "320", "--height", "240", "--frame-rate", "100"};
    if (std::string{"extended"} == GetParam()) options.push_back("--extended-ids");
    own.start_camera(options);
    own.start_service();
    open_camera camera;
    auto& remote = camera.remote();
    const auto set = [&](const char* name, const std::string& value) {
        cli::set_from_text(cli::require_node(remote, name), value);
    };
    set("AcquisitionMode", "MultiFrame");
    set("AcquisitionFrameCount", std::to_string(frames));
    set("EventSelector", "ExposureEnd");
    set("EventNotification", "On");

    const auto& lib = *camera.lib;
    EVENT_HANDLE events = camera.event_of(camera.device->get(), EVENT_REMOTE_DEVICE);
    event_port port;
    auto* node = remote.document().find<GenICam::IPort>("EventExposureEnd_Port");
    ASSERT_NE(node, nullptr);
    ASSERT_FALSE(node->bind(&port, 0));

    camera.start(frames);
    uint64_t last_time = 0;
    for (int frame = 1; frame <= frames; ++frame) {
        ASSERT_TRUE(camera.next_frame(5000)) << frame;
        std::byte packet[packet_size];
        size_t size = sizeof packet;
        ASSERT_EQ(lib.EventGetData(events, packet, &size, 5000), GC_ERR_SUCCESS) << frame;
        EXPECT_EQ(size, packet_size);
        INFO_DATATYPE type = 0;
        char id[8] = {};
        size_t length = sizeof id;
        ASSERT_EQ(lib.EventGetDataInfo(events, packet, size, EVENT_DATA_ID, &type, id, &length), GC_ERR_SUCCESS);
        EXPECT_STREQ(id, "9001");
        port.body.resize(packet_size);
        length = port.body.size();
        ASSERT_EQ(lib.EventGetDataInfo(events, packet, size, EVENT_DATA_VALUE, &type, port.body.data(), &length),
                  GC_ERR_SUCCESS);
        port.body.resize(length);
        EXPECT_EQ(cli::require_integer(remote, "EventExposureEndFrameID"), frame);
        const auto time = static_cast<uint64_t>(cli::require_integer(remote, "EventExposureEndTimestamp"));
        EXPECT_GT(time, last_time);
        last_time = time;
    }
    std::byte packet[packet_size];
    size_t size = sizeof packet;
    EXPECT_EQ(lib.EventGetData(events, packet, &size, 200), GC_ERR_TIMEOUT) << "none comes twice";
    EXPECT_EQ(lib.EventGetDataInfo(events, packet, packet_size - 1, EVENT_DATA_ID, nullptr, nullptr, &size),
              GC_ERR_INVALID_PARAMETER);
    camera.stop();
    lib.check("GCUnregisterEvent", lib.GCUnregisterEvent(camera.device->get(), EVENT_REMOTE_DEVICE));
}

INSTANTIATE_TEST_SUITE_P(Forms, CameraEvents, testing::Values("standard", "extended"),
                         [](const auto& chosen) { return std::string{chosen.param}; });

// The way of consumers that poll: a buffer of the size that the event names, short time-outs and none at all, the id as
// a text whose size is asked for; and a registration that ends and begins again while events come.
TEST_P(CameraEvents, APollingConsumerReadsEachWhileItIsRegistered) {
    test_system own;
    std::vector<std::string> options{"--width", "320", "--height", "240", "--frame-rate", "200"};
    const bool extended = std::string{"extended"} == GetParam();
    if (extended) options.push_back("--extended-ids");
    own.start_camera(options);
    own.start_service();
    open_camera camera;
    camera.set("EventSelector", "ExposureEnd");
    camera.set("EventNotification", "On");
    camera.start(10);
    std::jthread taker{[&](const std::stop_token& stop) {
        while (!stop.stop_requested()) static_cast<void>(camera.next_frame(100));
    }};
    const auto& lib = *camera.lib;
    uint64_t last = 0; // block id
    for (int round = 0; round < 3; ++round) {
        EVENT_HANDLE events = nullptr;
        ASSERT_EQ(lib.GCRegisterEvent(camera.device->get(), EVENT_REMOTE_DEVICE, &events), GC_ERR_SUCCESS);
        EVENT_HANDLE second = nullptr;
        EXPECT_EQ(lib.GCRegisterEvent(camera.device->get(), EVENT_REMOTE_DEVICE, &second), GC_ERR_RESOURCE_IN_USE);
        INFO_DATATYPE type = 0;
        size_t largest = 0;
        size_t length = sizeof largest;
        ASSERT_EQ(lib.EventGetInfo(events, EVENT_SIZE_MAX, &type, &largest, &length), GC_ERR_SUCCESS);
        std::vector<std::byte> packet(largest);
        const auto ask = [&](EVENT_DATA_INFO_CMD what) {
            size_t needed = 0;
            EXPECT_EQ(lib.EventGetDataInfo(events, packet.data(), packet.size(), what, &type, nullptr, &needed),
                      GC_ERR_SUCCESS);
            std::vector<std::byte> answer(needed);
            EXPECT_EQ(lib.EventGetDataInfo(events, packet.data(), packet.size(), what, &type, answer.data(), &needed),
                      GC_ERR_SUCCESS);
            EXPECT_EQ(needed, answer.size());
            return answer;
        };
        // Reads until it is unregistered under its hands.
        std::atomic<int> came = 0;
        std::thread poller{[&] {
            for (int i = 0;; ++i) {
                size_t size = packet.size();
                const GC_ERROR waited = lib.EventGetData(events, packet.data(), &size, i % 2 == 0 ? 0 : 100);
                if (waited == GC_ERR_TIMEOUT) continue;
                if (waited != GC_ERR_SUCCESS) {
                    EXPECT_TRUE(waited == GC_ERR_ABORT || waited == GC_ERR_INVALID_HANDLE) << waited;
                    return;
                }
                uint64_t number = 0;
                size_t number_size = sizeof number;
                // The event may be unregistered already; its packet is still the consumer's own.
                const GC_ERROR told =
                    lib.EventGetDataInfo(events, packet.data(), size, EVENT_DATA_NUMID, &type, &number, &number_size);
                if (told == GC_ERR_INVALID_HANDLE) return;
                EXPECT_EQ(told, GC_ERR_SUCCESS);
                EXPECT_EQ(number, 0x9001U);
                if (came == 20) {
                    ++came;
                    continue;
                }
                if (came > 20) continue;
                const auto id = ask(EVENT_DATA_ID);
                EXPECT_STREQ(reinterpret_cast<const char*>(id.data()), "9001");
                EXPECT_EQ(type, INFO_DATATYPE_STRING);
                const auto body = ask(EVENT_DATA_VALUE);
                uint64_t block = 0;
                for (size_t at = extended ? 8 : 6; at < (extended ? 16U : 8U); ++at)
                    block = block << 8 | std::to_integer<uint64_t>(body.at(at));
                if (came == 0)
                    EXPECT_GT(block, last) << "none from before the registration";
                else
                    EXPECT_EQ(block, last + 1);
                last = block;
                ++came;
            }
        }};
        EXPECT_TRUE(eventually([&] { return came > 20; })) << round;
        EXPECT_EQ(lib.GCUnregisterEvent(camera.device->get(), EVENT_REMOTE_DEVICE), GC_ERR_SUCCESS);
        poller.join();
        EXPECT_EQ(lib.GCUnregisterEvent(camera.device->get(), EVENT_REMOTE_DEVICE), GC_ERR_NOT_INITIALIZED);
    }
    taker.request_stop();
    taker.join();
    camera.stop();
}

// What the interface's features refuse before anything is sent, and what the service refuses.
TEST(InterfaceFeatures, AddressesAndFirmwareNameWhatIsMissing) {
    small_system own;
    const open_camera camera;
    const cli::node_map nodes{*camera.lib, camera.interface->get()};
    const auto execute = [&](const char* command) -> std::string {
        try {
            cli::execute(cli::require_node(nodes, command));
        } catch (const std::exception& failure) {
            return failure.what();
        }
        return {};
    };
    EXPECT_THAT(execute("GevDeviceForceIP"), HasSubstr("Invalid IP-Address specified."));
    EXPECT_THAT(execute("FirmwareUpdateUpload"), HasSubstr("No firmware package to upload specified."));
    EXPECT_THAT(execute("FirmwareUpdatePackageSelectFile"), HasSubstr("There is no window to choose a file in"));
    std::string error;
    EXPECT_EQ(cli::value_text(cli::require_node(nodes, "DeviceReachableStatus"), error), "Reachable") << error;
    EXPECT_EQ(cli::value_text(cli::require_node(nodes, "FirmwareUpdateProgress"), error), "") << error;
}

// Between the service's opening and the client's knowing its numbers: nobody is there for it, and it must not come
// later, before the next.
TEST(CameraEvent, OneThatCameBeforeItsConsumerIsNotTheFirst) {
    namespace gvcp = gige::gvcp;
    test_system own;
    const uint32_t address = *gige::parse_address(own.camera_address(0));
    const auto socket = gige::udp_socket::open({address, 0});
    ASSERT_TRUE(socket);
    const auto send_event = [&](const scripted_camera& from, uint16_t id) {
        std::array<std::byte, gvcp::header_size + 16> event{};
        gvcp::store_command(event.data(), {0, gvcp::command::event_data, 16, id});
        gige::store16(&event[gvcp::header_size + 2], id);
        const auto port = static_cast<uint16_t>(from.get(gvcp::reg::message_port));
        EXPECT_FALSE(socket->send({from.get(gvcp::reg::message_address), port}, event));
    };
    scripted_camera cam{address, [&](scripted_camera& self, const scripted_camera::request& got) {
                            if (!got.is(gvcp::command::write_reg, gvcp::reg::message_port) || got.word(4) == 0)
                                return false;
                            self.set(gvcp::reg::message_port, got.word(4));
                            send_event(self, 0x9001);
                            std::this_thread::sleep_for(std::chrono::milliseconds{100}); // it is there by the answer
                            return false;
                        }};
    const std::string document = R"(<RegisterDescription ModelName="M" VendorName="V" SchemaMajorVersion="1"
  SchemaMinorVersion="1" SchemaSubMinorVersion="0" xmlns="http://www.genicam.org/GenApi/Version_1_1">
<Port Name="Device"/></RegisterDescription>)";
    cam.set(gvcp::reg::message_channel_count, 1);
    cam.set_text(gvcp::reg::serial, test_system::serial(0), 16);
    cam.set_text(0x100000, document, document.size());
    cam.set_text(gvcp::reg::first_url, fmt::format("local:cam.xml;100000;{:X}", document.size()), 512);
    own.add_camera(0);
    own.start_service();
    const open_camera camera;
    const auto& lib = *camera.lib;
    EVENT_HANDLE events = camera.event_of(camera.device->get(), EVENT_REMOTE_DEVICE);
    send_event(cam, 0x9002);
    std::byte packet[packet_size];
    size_t size = sizeof packet;
    ASSERT_EQ(lib.EventGetData(events, packet, &size, 20'000), GC_ERR_SUCCESS);
    INFO_DATATYPE type = 0;
    uint64_t id = 0;
    size_t length = sizeof id;
    lib.check("EventGetDataInfo", lib.EventGetDataInfo(events, packet, size, EVENT_DATA_NUMID, &type, &id, &length));
    EXPECT_EQ(id, 0x9002U);
    lib.check("GCUnregisterEvent", lib.GCUnregisterEvent(camera.device->get(), EVENT_REMOTE_DEVICE));
}
