// The ways of common consumers, with both libraries.
#include "support/built.h"
#include "support/test_system.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <array>
#include <thread>

using namespace test_support;
using namespace GenTL;

namespace {

class Consumers : public testing::TestWithParam<const char*> {};

} // namespace

TEST_P(Consumers, StopWhileAnotherThreadWaits) {
    small_system own;
    open_camera camera{test_system::serial(0), GetParam()};
    camera.start();
    const cli::gentl_library& lib = *camera.lib;
    std::thread waiter{[&] {
        while (camera.next_frame(GENTL_INFINITE)) {
        }
    }};
    std::this_thread::sleep_for(std::chrono::milliseconds{100});
    camera.execute("AcquisitionStop");
    EXPECT_EQ(lib.DSStopAcquisition(camera.stream->get(), ACQ_STOP_FLAGS_DEFAULT), GC_ERR_SUCCESS);
    EXPECT_EQ(lib.EventKill(camera.new_buffer), GC_ERR_SUCCESS);
    waiter.join();
    EXPECT_EQ(lib.GCUnregisterEvent(camera.stream->get(), EVENT_NEW_BUFFER), GC_ERR_SUCCESS);
    EXPECT_EQ(lib.DSFlushQueue(camera.stream->get(), ACQ_QUEUE_ALL_DISCARD), GC_ERR_SUCCESS);
}

TEST_P(Consumers, ACamerasEventIsNoneOfTheModule) {
    small_system own;
    open_camera camera{test_system::serial(0), GetParam()};
    const cli::gentl_library& lib = *camera.lib;
    EVENT_HANDLE module_event = nullptr;
    ASSERT_EQ(lib.GCRegisterEvent(camera.device->get(), EVENT_MODULE, &module_event), GC_ERR_SUCCESS);
    camera.set("EventSelector", "Test");
    camera.set("EventNotification", "On");
    camera.execute("TestEventGenerate");
    std::array<std::byte, 1024> data;
    size_t size = data.size();
    EXPECT_EQ(lib.EventGetData(module_event, data.data(), &size, 500), GC_ERR_TIMEOUT);
    EXPECT_EQ(lib.GCUnregisterEvent(camera.device->get(), EVENT_MODULE), GC_ERR_SUCCESS);
}

INSTANTIATE_TEST_SUITE_P(Libraries, Consumers, testing::Values(built::cti, built::multipart_cti),
                         [](const auto& chosen) { return chosen.index == 0 ? "plain" : "multipart"; });

TEST(BufferParts, BuffersHaveOne) {
    small_system own;
    open_camera camera{test_system::serial(0), built::multipart_cti};
    camera.start();
    void* file = dlopen(built::multipart_cti, RTLD_NOW | RTLD_LOCAL);
    auto* count_parts = reinterpret_cast<decltype(&DSGetNumBufferParts)>(dlsym(file, "DSGetNumBufferParts"));
    ASSERT_NE(count_parts, nullptr);
    uint32_t parts = 0;
    int unknown = 0;
    EXPECT_EQ(count_parts(camera.stream->get(), nullptr, &parts), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(count_parts(camera.stream->get(), &unknown, &parts), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(count_parts(camera.stream->get(), &unknown, nullptr), GC_ERR_INVALID_PARAMETER);
    EVENT_NEW_BUFFER_DATA event{};
    size_t size = sizeof event;
    ASSERT_EQ(camera.lib->EventGetData(camera.new_buffer, &event, &size, 5000), GC_ERR_SUCCESS);
    EXPECT_EQ(count_parts(camera.stream->get(), event.BufferHandle, &parts), GC_ERR_NO_DATA);
    camera.stop();
    dlclose(file);
}
