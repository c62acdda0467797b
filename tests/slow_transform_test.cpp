// A transform that takes longer than a frame of the camera: what the two ways of delivering make of it. Real library,
// service and simulated camera.
#include "support/test_system.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>

using namespace test_support;
using namespace GenTL;

namespace {

struct frame {
    uint64_t id;
    bool complete;
};

class SlowTransform : public testing::Test {
protected:
    void start(const char* rate, const char* queue_mode) {
        own.start_camera({"--width", "1024", "--height", "1024", "--pixel-format", "BayerRG8", "--frame-rate", rate});
        own.start_service();
        camera = std::make_unique<open_camera>();
        device = std::make_unique<cli::node_map>(*camera->lib, camera->device->get());
        set(*device, "ImageTransformQueueMode", queue_mode);
        // The plainest loops on one thread, through colours and back.
        set(*device, "DataStreamTransformOptimizationLevel", "1");
        set(*device, "DataStreamTransformMaxConcurrency", "1");
        set(camera->remote(), "SoftwareSaturation", "150");
        set(camera->remote(), "SoftwareSharpness", "64");
        set(camera->remote(), "SoftwareDenoise", "16");
        set(camera->remote(), "SoftwareImageProcessingEnable", "true");
        camera->start(10);
        PORT_HANDLE port = camera->stream->get();
        stream = std::make_unique<cli::node_map>(*camera->lib, port);
    }
    static void set(const cli::node_map& nodes, const char* name, const char* value) {
        cli::set_from_text(cli::require_node(nodes, name), value);
    }
    [[nodiscard]] int64_t count(const char* name) const { return cli::require_integer(*stream, name); }
    std::optional<frame> next() const {
        EVENT_NEW_BUFFER_DATA event{};
        size_t size = sizeof event;
        if (camera->lib->EventGetData(camera->new_buffer, &event, &size, 5000) != GC_ERR_SUCCESS) return {};
        frame found{};
        bool8_t incomplete = 0;
        INFO_DATATYPE type = 0;
        const auto info = [&](BUFFER_INFO_CMD command, auto& value) {
            size = sizeof value;
            camera->lib->check(
                "DSGetBufferInfo",
                camera->lib->DSGetBufferInfo(camera->stream->get(), event.BufferHandle, command, &type, &value, &size));
        };
        info(BUFFER_INFO_FRAMEID, found.id);
        info(BUFFER_INFO_IS_INCOMPLETE, incomplete);
        found.complete = incomplete == 0;
        camera->lib->check("DSQueueBuffer", camera->lib->DSQueueBuffer(camera->stream->get(), event.BufferHandle));
        return found;
    }
    // Frames until the condition holds; false when they end, or do not come to it within half a minute.
    template <class Condition>
    bool take_until(const Condition& condition) const {
        const auto begun = std::chrono::steady_clock::now();
        while (std::chrono::steady_clock::now() - begun < std::chrono::seconds{30}) {
            const auto found = next();
            if (!found) return false;
            if (condition(*found)) return true;
        }
        return false;
    }
    [[nodiscard]] static bool contains(const char* name, const std::string& part) {
        std::ifstream file{name};
        for (std::string line; std::getline(file, line);)
            if (line.find(part) != line.npos) return true;
        return false;
    }

    test_system own;
    std::unique_ptr<open_camera> camera;
    std::unique_ptr<cli::node_map> device, stream;
};

} // namespace

// Frames that come meanwhile are dropped, older ones first, and counted.
TEST_F(SlowTransform, BehindTheDedicatedThreadDropsAndCountsFrames) {
    start("60", "UseDedicatedThread");
    uint64_t first = 0, last = 0;
    int64_t taken = 0;
    bool ordered = true;
    EXPECT_TRUE(take_until([&](const frame& f) {
        ordered = ordered && f.id > last;
        if (first == 0) first = f.id;
        last = f.id;
        return ++taken >= 20 && count("TransformQueueDropCount") >= 20;
    }));
    EXPECT_TRUE(ordered);
    EXPECT_FALSE(contains("/proc/self/maps", "imgfilter_avx2")) << "only the plain functions were asked for";
    camera->stop();
    const int64_t drops = count("TransformQueueDropCount");
    const int64_t lost = count("StreamPacketLossFrameCount") + count("StreamLostFrameCount"); // on a busy machine
    EXPECT_GE(taken + drops + lost, static_cast<int64_t>(last - first + 1)) << "delivered or counted";
    // The last one taken was transformed while no more than a few others came.
    EXPECT_LE(count("StreamDeliveredFrameCount") + drops, static_cast<int64_t>(last - first + 1) + 40);

    set(*device, "DataStreamTransformOptimizationLevel", "0");
    camera->start();
    EXPECT_TRUE(next());
    EXPECT_EQ(contains("/proc/self/maps", "imgfilter_avx2"), contains("/proc/cpuinfo", " avx2 "));
    camera->stop();
}

// The receive thread is kept from the socket, so frames are lost. When the transform ends they come again.
TEST_F(SlowTransform, OnTheReceiveThreadLosesFramesAndRecovers) {
    start("250", "UseDirectTransform");
    bool incomplete = false;
    EXPECT_TRUE(take_until([&](const frame& f) {
        incomplete = incomplete || !f.complete;
        return incomplete || count("StreamPacketLossFrameCount") > 0;
    }));
    EXPECT_EQ(count("TransformQueueDropCount"), 0);
    set(camera->remote(), "AcquisitionFrameRate", "50");
    set(camera->remote(), "SoftwareImageProcessingEnable", "false");
    uint64_t before = 0;
    int whole_in_a_row = 0;
    EXPECT_TRUE(take_until([&](const frame& f) {
        whole_in_a_row = f.complete && f.id == before + 1 ? whole_in_a_row + 1 : 0;
        before = f.id;
        return whole_in_a_row == 20;
    }));
    camera->stop();
}
