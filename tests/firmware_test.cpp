// New firmware for a camera: through the library and the service into the camera, and every way that it can fail.
#include "support/built.h"
#include "support/test_system.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <thread>

using namespace test_support;
using namespace GenTL;

namespace {

class Firmware : public testing::Test {
protected:
    std::string make(const std::string& name, std::vector<std::string> options = {}) {
        const std::string path = own.folder() / name;
        options.insert(options.begin(), {built::program("orv-gev-camera-sim"), "--make-firmware", path});
        EXPECT_EQ(process(options, own.folder() / (name + ".log")).wait(), 0);
        return path;
    }
    // An upload that takes a quarter of a minute unless something ends it.
    static std::vector<std::string> slowly() {
        return {"--width", "320", "--height", "240", "--pending-every", "5", "--pending-ms", "400"};
    }
    [[nodiscard]] test_system::run_result upload(const std::string& package) {
        return own.run_consumer({"firmware", package, "--json"});
    }
    [[nodiscard]] std::string version() {
        const auto listed = own.ask({"list"})["devices"];
        return listed.empty() ? "none" : listed[0]["version"].get<std::string>();
    }
    test_system own;
};

// Until the first blocks are written.
void await_upload(process& consumer) { ASSERT_TRUE(consumer.wait_for_output("%\nUploading:")) << consumer.output(); }

} // namespace

TEST_F(Firmware, GoesInAndTheInterfaceTellsHowFarItIs) {
    own.start_camera(small());
    own.start_service();
    const auto package = make("new.fwpack", {"--firmware-version", "2.5.0"});
    EXPECT_EQ(version(), "1.0.0");
    std::vector<std::string> told;
    {
        const open_camera finder{test_system::serial(0), nullptr, DEVICE_ACCESS_READONLY};
        const auto& lib = *finder.lib;
        const EVENT_HANDLE event = finder.event_of(finder.interface->get(), EVENT_MODULE);
        const auto done = upload(package);
        ASSERT_EQ(done.exit_code, 0) << done.output;
        EXPECT_EQ(nlohmann::json::parse(done.output)["state"], "Finished: version 2.5.0");
        while (told.empty() || !told.back().starts_with("Finished")) {
            std::byte data[1024];
            size_t size = sizeof data;
            if (lib.EventGetData(event, data, &size, 10'000) != GC_ERR_SUCCESS) break;
            INFO_DATATYPE type = 0;
            uint64_t id = 0;
            size_t length = sizeof id;
            lib.check("EventGetDataInfo",
                      lib.EventGetDataInfo(event, data, size, EVENT_DATA_NUMID, &type, &id, &length));
            char text[256] = {};
            length = sizeof text - 1;
            if (id != 0x3002) continue;
            lib.check("EventGetDataInfo",
                      lib.EventGetDataInfo(event, data, size, EVENT_DATA_VALUE, &type, text, &length));
            told.emplace_back(text, length);
        }
        lib.check("GCUnregisterEvent", lib.GCUnregisterEvent(finder.interface->get(), EVENT_MODULE));
    }
    ASSERT_FALSE(told.empty());
    EXPECT_EQ(told.back(), "Finished: version 2.5.0");
    for (const char* state : {"Uploading: 100 %", "Restarting"})
        EXPECT_NE(std::ranges::find(told, state), told.end()) << state;
    EXPECT_EQ(version(), "2.5.0");
    EXPECT_EQ(own.run_consumer({"get", "DeviceVersion"}).output, "2.5.0\n");
}

TEST_F(Firmware, WhatIsNoneForTheCameraIsRefusedAndNothingIsLeftOpen) {
    own.start_camera(small());
    own.start_service();
    const auto folder = own.folder();
    std::ofstream{folder / "empty.fwpack"};
    std::ofstream{folder / "huge.fwpack"};
    std::filesystem::resize_file(folder / "huge.fwpack", (100 << 20) + 1);
    ASSERT_EQ(mkfifo((folder / "fifo.fwpack").c_str(), 0600), 0);
    const struct {
        std::string path;
        const char* says;
    } cases[] = {
        {folder / "missing.fwpack", "No such file or directory"},
        {folder, "it is no regular file"},
        {folder / "fifo.fwpack", "it is no regular file"},
        {folder / "huge.fwpack", "firmware_package_upload: "},
        {folder / "empty.fwpack", "the package is no zip archive"},
        {make("other.fwpack", {"--model", "Other"}), "the package is for Orv Other, the camera is Orv SimCam"},
    };
    for (const auto& each : cases) {
        const auto refused = upload(each.path);
        EXPECT_EQ(refused.exit_code, 3) << each.path;
        EXPECT_TRUE(holds(refused.output, each.says)) << refused.output;
    }
    const auto unsent = upload(folder / "huge.fwpack");
    EXPECT_FALSE(holds(unsent.output, "the package is for")) << "the words of an earlier refusal: " << unsent.output;
    const auto good = make("good.fwpack");
    {
        const open_camera other;
        const auto refused = upload(good);
        EXPECT_EQ(refused.exit_code, 8);
        EXPECT_TRUE(holds(refused.output, "the camera cannot be held: Access denied")) << refused.output;
    }
    EXPECT_EQ(version(), "1.0.0");
    const auto done = upload(good);
    EXPECT_EQ(done.exit_code, 0) << done.output;
}

TEST_F(Firmware, OneAtATimeAndACameraThatGoesEndsIt) {
    own.start_camera(slowly());
    own.start_service();
    const auto package = make("new.fwpack");
    auto first = own.start_consumer({"firmware", package});
    await_upload(first);
    const auto second = upload(package);
    EXPECT_EQ(second.exit_code, 8);
    EXPECT_TRUE(holds(second.output, "ERR_GEV_STATUS_BUSY")) << second.output;
    const auto moved = own.run_consumer({"force-ip", "127.0.0.99", "--json"});
    EXPECT_TRUE(holds(moved.output, "or its firmware is being updated")) << moved.output;
    EXPECT_TRUE(first.running());
    own.camera(0).signal(SIGKILL);
    EXPECT_EQ(first.wait(), 1);
    EXPECT_TRUE(holds(first.output(), "Failed: the upload broke off at ")) << first.output();
    EXPECT_TRUE(own.service().running());
}

// Whose last word is another's refusal has waited long enough.
TEST_F(Firmware, AnUploadThatIsOverdueEndsWithWhatIsKnown) {
    own.start_camera(small());
    own.start_service();
    const auto package = make("new.fwpack");
    const auto other = make("other.fwpack", {"--model", "Other"});
    auto first = own.start_consumer({"firmware", package});
    ASSERT_TRUE(first.wait_for_output("ing")) << first.output(); // uploading, installing or restarting
    first.signal(SIGSTOP);
    EXPECT_TRUE(eventually([&] { return version() == "2.0.0"; }));
    // Refused as soon as the first one is over.
    std::string second;
    EXPECT_TRUE(eventually([&] { return !holds(second = upload(other).output, "BUSY"); }));
    EXPECT_TRUE(holds(second, "the package is for")) << second;
    first.signal(SIGCONT);
    EXPECT_EQ(first.wait(), 1);
    EXPECT_TRUE(holds(first.output(), "Refused:")) << first.output();
}

TEST_F(Firmware, AServiceThatIsKilledLeavesACameraThatTakesItAgain) {
    own.start_camera(slowly());
    own.start_service();
    const auto package = make("new.fwpack");
    auto first = own.start_consumer({"firmware", package});
    await_upload(first);
    own.stop_service(SIGKILL);
    EXPECT_NE(first.wait(), 0);
    own.start_service();
    EXPECT_EQ(version(), "1.0.0");
    // From the port that the killed one noted; another host would have to wait out the heartbeat.
    auto again = own.start_consumer({"firmware", package});
    EXPECT_TRUE(again.wait_for_output("Uploading:")) << again.output();
    own.service().signal(SIGTERM);
    EXPECT_EQ(own.service().wait(), 0) << "an upload under way does not keep the service";
}
