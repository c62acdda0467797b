// A camera whose control stops answering.
#include "support/test_system.h"

#include <gtest/gtest.h>

#include <array>

using namespace test_support;

// The stream goes on and frames are delivered; the consumer learns that the control is gone, and gets out.
TEST(OddCamera, ADeafCameraStreamsOnAndCanBeClosed) {
    using namespace GenTL;
    small_system own{{"--frame-rate", "50", "--deaf-after", "3"}};
    open_camera camera;
    const auto& lib = *camera.lib;
    EVENT_HANDLE error = camera.event_of(camera.device->get(), EVENT_ERROR);
    camera.start(20); // a buffer for each frame
    for (uint64_t frame = 1; frame <= 20; ++frame) EXPECT_EQ(camera.next_frame(5000), frame);
    std::array<char, 512> record{};
    size_t size = record.size();
    EXPECT_EQ(lib.EventGetData(error, record.data(), &size, 20'000), GC_ERR_SUCCESS);
    EXPECT_EQ(lib.DSStopAcquisition(camera.stream->get(), 0), GC_ERR_SUCCESS);
}
