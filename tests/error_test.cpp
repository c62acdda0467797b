// What a consumer reads when things are not as they should be.
#include "support/built.h"
#include "support/test_system.h"

#include <gds_shared/product_constants.h>

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

TEST(Error, WithoutAServiceTheLibrarySaysSo) {
    const test_system own;
    const auto lib = std::make_shared<const cli::gentl_library>(built::cti);
    const auto failure = failure_of([&] { static_cast<void>(cli::open_system(lib)); });
    EXPECT_EQ(failure.code, GC_ERR_ACCESS_DENIED);
    EXPECT_EQ(failure.reason, "Failed to connect to service via service-pipe 'orv-gentl-gev_service_pipe_1.3.1.860_"
                              "rel'. CTI version '1.3.1.860'.");
}

TEST(Error, AccessModesAreKept) {
    small_system own;
    const std::string serial = test_system::serial(0);
    open_camera first{serial, nullptr, DEVICE_ACCESS_EXCLUSIVE};
    // Another process asks for the same camera.
    const auto second = own.run_consumer({"features", "--device", serial, "--access", "exclusive", "--json"});
    EXPECT_EQ(second.exit_code, 8);
    const auto object = nlohmann::json::parse(second.output, nullptr, false);
    ASSERT_TRUE(object.is_object()) << second.output;
    EXPECT_EQ(object["error"]["call"], "IFOpenDevice") << object;
    EXPECT_EQ(object["error"]["code"], GC_ERR_ACCESS_DENIED) << object;
    EXPECT_EQ(object["error"]["producer"], "gevdrv-status: ERR_GEV_STATUS_WRITE_PROTECT") << object;
}

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
