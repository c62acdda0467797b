// Memory runs out while a frame is worked on: the frame is delivered all the same, and the next is worked on again.
#include "device_stream.h"

#include <gds_helper/log.h>
#include <img_pipe/profiler.h>
#include <support/failing_memory.h>
#include <support/log_capture.h>

#include <pthread.h>

#include <cstdlib>
#include <string_view>

namespace {

using namespace fake;
using block = gds_producer::settings_block;

constexpr int32_t added = 64;

// What the transform makes of the byte.
bool is_brighter(std::byte found, std::byte sent) {
    const int expected = std::min(std::to_integer<int>(sent) + added, 255);
    return std::abs(std::to_integer<int>(found) - expected) <= 1;
}

// On the thread of its own a frame is all there is; the receive thread takes memory for other things, too, but has a
// profiler only while it works on a frame.
bool works_on_a_frame() {
    if (img_pipe::profiler::current() != nullptr) return true;
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof name);
    return std::string_view{name} == "gds-buf-deliver";
}

// Frame 1 with nothing to be done to it; frames 2 and 3 while allocation `failing` made for them fails; then
// frame 4. False when none failed.
bool run_with_failure(int failing, bool dedicated) {
    SCOPED_TRACE(testing::Message() << "allocation " << failing << ", dedicated thread " << dedicated);
    const test_support::log_capture log{gds_helper::log::gvsp_logger()};
    const auto own = device_stream::make({.width = 640, .height = 400});
    own->use_dedicated_thread(dedicated);
    own->queue_new(5);
    EXPECT_TRUE(own->start());
    const auto take = [&](uint16_t id) {
        own->cam.send_frame(id);
        const BUFFER_HANDLE handle = own->next(long_enough_ms);
        EXPECT_NE(handle, nullptr) << "frame " << id;
        return handle;
    };
    if (take(1) == nullptr) return false;
    feature<int64_t>{*own->device, "DataStreamTransformMaxConcurrency"}.set(3);
    feature<uint32_t>{*own->device, "DataStreamTransformProfilerOverlay"}.set(1);
    own->settings().set_flag(block::overlay, true);
    own->settings().set_flag(block::auto_gain, true);
    own->settings().store(block::brightness, added);
    own->settings().set_flag(block::master_enable, true);
    failing_memory::fail(failing, works_on_a_frame);
    for (const uint16_t id : {2, 3}) { // both wait for the consumer
        own->cam.send_frame(id);
        EXPECT_TRUE(eventually([&] { return own->info<uint64_t>(STREAM_INFO_NUM_DELIVERED) == id; })) << "frame " << id;
    }
    const int failures = failing_memory::stop();
    size_t as_they_came = 0;
    for (int i = 0; i < 2; ++i) {
        const BUFFER_HANDLE handle = own->next(0);
        EXPECT_NE(handle, nullptr);
        if (handle != nullptr && !is_brighter(own->bytes_of(handle)[200 * 640], {})) ++as_they_came;
    }
    EXPECT_EQ(log.count("without processing"), std::min<size_t>(as_they_came, 1)) << "once";
    if (const BUFFER_HANDLE handle = take(4)) {
        // Below the overlay.
        const std::byte* const bytes = own->bytes_of(handle);
        for (size_t i = 200 * 640; i < 201 * 640; ++i) EXPECT_TRUE(is_brighter(bytes[i], {})) << "byte " << i;
    }
    EXPECT_EQ(own->info<uint64_t>(STREAM_INFO_NUM_DELIVERED), 4U);
    EXPECT_TRUE(own->all_accounted_for());
    return failures != 0;
}

} // namespace

TEST(ProcessingMemory, AFrameIsNotLostWhenMemoryIsOut) {
    for (const bool dedicated : {false, true}) {
        int failing = 0;
        while (failing < 100 && run_with_failure(failing, dedicated) && !HasFailure()) ++failing;
        EXPECT_GT(failing, 1) << "the processing takes memory with its first frames";
        EXPECT_LT(failing, 100);
    }
}
