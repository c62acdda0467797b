// A camera's own events, from its message channel to the features of its document.
#include "bench.h"

#include <gtest/gtest.h>

#include <cstring>
#include <span>

using namespace GenTL;

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
    bench::test_bench own;
    std::vector<std::string> options{"--width", "320", "--height", "240", "--frame-rate", "100"};
    if (std::string{"extended"} == GetParam()) options.push_back("--extended-ids");
    own.start_camera(options);
    own.start_service();
    bench::open_camera camera{bench::test_bench::serial(0)};
    auto& remote = camera.remote();
    const auto set = [&](const char* name, const std::string& value) {
        cli::set_from_text(cli::require_node(remote, name), value);
    };
    set("AcquisitionMode", "MultiFrame");
    set("AcquisitionFrameCount", std::to_string(frames));
    set("EventSelector", "ExposureEnd");
    set("EventNotification", "On");

    const auto& lib = *camera.lib;
    EVENT_HANDLE events = nullptr;
    lib.check("GCRegisterEvent", lib.GCRegisterEvent(camera.device->get(), EVENT_REMOTE_DEVICE, &events));
    event_port port;
    auto* node = remote.document().find<GenICam::IPort>("EventExposureEnd_Port");
    ASSERT_NE(node, nullptr);
    ASSERT_FALSE(node->bind(&port, 0));

    camera.start(10);
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

// What the interface's features refuse before anything is sent, and what the service refuses.
TEST(InterfaceFeatures, AddressesAndFirmwareNameWhatIsMissing) {
    bench::test_bench own;
    own.start_camera();
    own.start_service();
    const bench::open_camera camera{bench::test_bench::serial(0)};
    const cli::node_map nodes{*camera.lib, camera.interface->get()};
    const auto failure_of = [&](const char* command) {
        try {
            cli::execute(cli::require_node(nodes, command));
        } catch (const std::exception& failure) {
            return std::string{failure.what()};
        }
        return std::string{"succeeded"};
    };
    EXPECT_NE(failure_of("GevDeviceForceIP"), "succeeded") << "no address is set";
    EXPECT_NE(failure_of("FirmwareUpdateUpload"), "succeeded") << "no package is set";
    EXPECT_NE(failure_of("FirmwareUpdatePackageSelectFile"), "succeeded") << "there is no window";
    EXPECT_THROW(cli::set_from_text(cli::require_node(nodes, "FirmwareUpdatePackageFile"), "/"), std::exception);
    std::string error;
    EXPECT_EQ(cli::value_text(cli::require_node(nodes, "DeviceReachableStatus"), error), "Reachable") << error;
    EXPECT_EQ(cli::value_text(cli::require_node(nodes, "FirmwareUpdateProgress"), error), "") << error;
    EXPECT_EQ(failure_of("ActionCommand"), "succeeded");
}
