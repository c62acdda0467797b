// What a consumer reads when things are not as they should be.
#include "support/test_system.h"

#include <gtest/gtest.h>

using namespace test_support;
using namespace GenTL;

namespace {

cli::call_failed failure_of(const std::function<void()>& action) {
    try {
        action();
    } catch (const cli::call_failed& failure) {
        return failure;
    }
    ADD_FAILURE() << "nothing failed";
    return {"nothing", 0, ""};
}

} // namespace

TEST(Error, AWriteOfAnySizeGetsAnAnswer) {
    small_system own;
    open_camera camera;
    PORT_HANDLE remote = nullptr;
    camera.lib->check("DevGetPort", camera.lib->DevGetPort(camera.device->get(), &remote));
    for (void* port : {camera.system->get(), camera.interface->get(), camera.device->get(), remote}) {
        for (const size_t asked : {size_t{1} << 47, SIZE_MAX}) {
            uint32_t value = 0;
            size_t size = asked;
            EXPECT_EQ(camera.lib->GCWritePort(port, 0xFFFFFF00, &value, &size), GC_ERR_INVALID_PARAMETER);
        }
    }
}

TEST(Error, RegistersOfTheCameraAnswerWithItsStatus) {
    small_system own;
    open_camera camera;
    PORT_HANDLE port = nullptr;
    camera.lib->check("DevGetPort", camera.lib->DevGetPort(camera.device->get(), &port));
    PORT_HANDLE again = nullptr;
    camera.lib->check("DevGetPort", camera.lib->DevGetPort(camera.device->get(), &again));
    EXPECT_EQ(port, again);
    uint32_t value = 0;
    size_t size = sizeof value;
    const auto failure =
        failure_of([&] { camera.lib->check("GCReadPort", camera.lib->GCReadPort(port, 0xFFFFFF00, &value, &size)); });
    EXPECT_EQ(failure.code, GC_ERR_INVALID_ADDRESS);
    EXPECT_EQ(failure.reason, "gevdrv-status: ERR_INVALID_ADDRESS");
}
