#include "loop_runner.h"

#include <cli/consumer/feature.h>

#include <algorithm>
#include <stdexcept>

namespace test_support {

using namespace GenTL;
using namespace GenICam;

namespace {

constexpr size_t late_frames = 12;

double number_of(const cli::node_map& nodes, const char* name) {
    INode* const node = nodes.document().find_node(name);
    if (auto* const real = node != nullptr ? node_cast<IFloat>(node) : nullptr)
        return real->get_val(access_flags::bypass_cache).value_or(0);
    if (auto* const integer = node != nullptr ? node_cast<IInteger>(node) : nullptr)
        return static_cast<double>(integer->get_val(access_flags::bypass_cache).value_or(0));
    return 0;
}

void measure(loop_sample& to, const uint8_t* pixels, size_t width, size_t height, bool mosaic) {
    std::array<uint64_t, 4> sum{};
    uint64_t count = 0;
    for (size_t y = 0; y + 1 < height; y += 2)
        for (size_t x = 0; x + 1 < width; x += 2, ++count)
            for (size_t site = 0; site < 4; ++site) sum[site] += pixels[(y + site / 2) * width + x + site % 2];
    const auto mean = [&](uint64_t total) { return static_cast<double>(total) / static_cast<double>(count) / 255; };
    const double green = mean(sum[1] + sum[2]) / 2;
    to.mean = {mean(sum[0]), green, mean(sum[3])};
    if (!mosaic) to.mean.fill(mean(sum[0] + sum[1] + sum[2] + sum[3]) / 4);
    to.luma = 0.299 * to.mean[0] + 0.587 * to.mean[1] + 0.114 * to.mean[2];
}

} // namespace

void set_features(open_camera& camera, const feature_values& values) {
    for (const auto& [name, value] : values) {
        INode& node = cli::require_node(camera.remote(), name);
        if (value == "!")
            cli::execute(node);
        else
            cli::set_from_text(node, value);
    }
}

std::vector<loop_sample> run_loop(open_camera& camera, size_t frames, const std::function<bool()>& over) {
    const cli::gentl_library& lib = *camera.lib;
    const cli::node_map& nodes = camera.remote();
    const auto width = static_cast<size_t>(cli::require_integer(nodes, "Width"));
    const auto height = static_cast<size_t>(cli::require_integer(nodes, "Height"));
    std::string error;
    const bool mosaic = cli::value_text(cli::require_node(nodes, "PixelFormat"), error).starts_with("Bayer");
    std::vector<loop_sample> seen;
    camera.start(24);
    for (size_t spoiled = 0, more = 0; seen.size() < frames;) {
        EVENT_NEW_BUFFER_DATA event{};
        size_t size = sizeof event;
        lib.check("EventGetData", lib.EventGetData(camera.new_buffer, &event, &size, 5000));
        const auto info = [&]<class T>(T, BUFFER_INFO_CMD command) {
            return cli::ask_value<T>(lib, "DSGetBufferInfo", [&](INFO_DATATYPE* type, void* value, size_t* length) {
                return lib.DSGetBufferInfo(camera.stream->get(), event.BufferHandle, command, type, value, length);
            });
        };
        loop_sample now;
        now.frame = info(uint64_t{}, BUFFER_INFO_FRAMEID) - 1;
        const auto* const pixels = static_cast<const uint8_t*>(info(static_cast<void*>(nullptr), BUFFER_INFO_BASE));
        const bool whole = info(size_t{}, BUFFER_INFO_SIZE_FILLED) == width * height;
        if (whole) measure(now, pixels, width, height, mosaic);
        lib.check("DSQueueBuffer", lib.DSQueueBuffer(camera.stream->get(), event.BufferHandle));
        if (!whole) { // a machine that is busy
            if (++spoiled > frames) throw std::runtime_error("nothing but incomplete frames");
            continue;
        }
        now.exposure = number_of(nodes, "ExposureTime");
        now.gain = number_of(nodes, "Gain");
        now.iris = static_cast<int64_t>(number_of(nodes, "Iris"));
        now.focus = static_cast<int64_t>(number_of(nodes, "Focus"));
        // What a consumer was too slow for looks like what came behind it: places are frame numbers.
        for (loop_sample lost = now; seen.size() < std::min(now.frame, uint64_t{frames - 1});) {
            lost.frame = seen.size();
            seen.push_back(lost);
        }
        seen.push_back(now);
        // Frames that wait behind this one show older values.
        if (over && more == 0 && over()) more = seen.size() + late_frames;
        if (more != 0 && seen.size() >= more) break;
    }
    camera.stop();
    return seen;
}

} // namespace test_support
