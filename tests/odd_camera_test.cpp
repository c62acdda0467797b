// Cameras that differ from most: packet sizes between the steps, sizes that they round, control that stops answering.
#include "support/test_system.h"

#include <gtest/gtest.h>

#include <signal.h>

using namespace test_support;

namespace {

struct size_case {
    const char* name;
    std::vector<std::string> camera;
    int packet_size;
    uint64_t most_tests;
};
void PrintTo(const size_case& given, std::ostream* out) { *out << given.name; }

class PacketSizeSearch : public testing::TestWithParam<size_case> {};

} // namespace

TEST_P(PacketSizeSearch, EndsWithTheLargestThatPasses) {
    test_system own;
    std::vector<std::string> options{"--width", "640", "--height", "480", "--frame-rate", "30"};
    options.insert(options.end(), GetParam().camera.begin(), GetParam().camera.end());
    own.start_camera(options);
    own.start_service();
    const auto result = own.grab({"--frames", "3", "--verify"});
    EXPECT_EQ(result.value("verified", false), true) << result;
    EXPECT_EQ(result.value("packet_size", 0), GetParam().packet_size) << result;
    const auto counted = own.end_camera(0);
    EXPECT_LE(counted.value("test_packets", uint64_t{0}), GetParam().most_tests);
}

INSTANTIATE_TEST_SUITE_P(
    OddCamera, PacketSizeSearch,
    testing::Values(size_case{"maximum_9014", {"--max-packet-size", "9014", "--packet-size-rounding", "none"}, 9014, 1},
                    size_case{"maximum_1502_on_a_line_of_1500",
                              {"--max-packet-size", "1502", "--packet-size-rounding", "none", "--mtu", "1500"},
                              1500,
                              16},
                    size_case{"rounds_up_by_hundreds",
                              {"--packet-size-step", "100", "--packet-size-rounding", "up", "--mtu", "4050"},
                              4000,
                              20}),
    [](const auto& chosen) { return std::string{chosen.param.name}; });

// The stream goes on and frames are delivered; the consumer learns that the control is gone, and gets out.
TEST(OddCamera, ADeafCameraStreamsOnAndCanBeClosed) {
    using namespace GenTL;
    small_system own{{"--frame-rate", "50", "--deaf-after", "3"}};
    open_camera camera;
    const auto& lib = *camera.lib;
    EVENT_HANDLE error = camera.event_of(camera.device->get(), EVENT_ERROR);
    camera.start();
    for (uint64_t frame = 1; frame <= 20; ++frame) EXPECT_EQ(camera.next_frame(5000), frame);
    std::array<char, 512> record{};
    size_t size = record.size();
    EXPECT_EQ(lib.EventGetData(error, record.data(), &size, 20'000), GC_ERR_SUCCESS);
    EXPECT_EQ(lib.DSStopAcquisition(camera.stream->get(), 0), GC_ERR_SUCCESS);
}
