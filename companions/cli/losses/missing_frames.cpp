#include "missing_frames.h"

#include "../consumer/feature_number.h"

#include <fmt/format.h>

namespace cli {

using namespace GenICam;

namespace {

// The triggers that are on, with what they wait for. The selector is put back.
void add_triggers(const node_map& camera, std::vector<std::string>& reasons) {
    const auto look = [&](const std::string& which) {
        if (feature_text(camera, "TriggerMode") != "On") return;
        const std::string source = feature_text(camera, "TriggerSource");
        std::string remedy = fmt::format("{}--set TriggerMode=Off lets it run free",
                                         which.empty() ? "" : fmt::format("--set TriggerSelector={} ", which));
        if (source == "Software") remedy = "'orv-gentl exec TriggerSoftware' or the application triggers it; " + remedy;
        reasons.push_back(fmt::format("the camera waits for a trigger{}{}: {}",
                                      which.empty() ? "" : fmt::format(" {}", which),
                                      source.empty() ? "" : fmt::format(" from {}", source), remedy));
    };
    auto* selector = node_cast<IEnumeration>(camera.document().find_node("TriggerSelector"));
    if (selector == nullptr) return look("");
    const std::string before = feature_text(camera, "TriggerSelector");
    for (const std::string& entry : entries_of(*selector)) {
        try {
            set_from_text(*selector, entry);
        } catch (const failure&) {
            continue;
        }
        look(entry);
    }
    try {
        set_from_text(*selector, before);
    } catch (const failure&) {
        // It could be read and cannot be written: it was not changed either.
    }
}

std::string time_text(double seconds) {
    return seconds < 1 ? fmt::format("{:.1f} ms", seconds * 1e3) : fmt::format("{:.1f} s", seconds);
}

} // namespace

std::vector<std::string> why_no_frames(const node_map& camera, const node_map& stream, std::chrono::milliseconds waited,
                                       uint64_t had_frames, int64_t packet_size) {
    std::vector<std::string> reasons;
    add_triggers(camera, reasons);
    const std::string mode = feature_text(camera, "AcquisitionMode");
    if (had_frames != 0 && (mode == "SingleFrame" || mode == "MultiFrame")) {
        const std::string most = mode == "SingleFrame" ? "1" : feature_text(camera, "AcquisitionFrameCount");
        reasons.push_back(fmt::format("AcquisitionMode is {}: the camera sends {} and stops; --set "
                                      "AcquisitionMode=Continuous, or --frames {}",
                                      mode, most.empty() ? "some" : most, had_frames));
    }
    const double seconds = std::chrono::duration<double>{waited}.count();
    const auto rate = feature_number(camera, "AcquisitionFrameRate");
    if (rate && *rate > 0 && 1 / *rate > seconds)
        reasons.push_back(fmt::format("AcquisitionFrameRate is {}: a frame takes {}; --frame-timeout gives it time",
                                      *rate, time_text(1 / *rate)));
    const auto exposure = feature_number(camera, "ExposureTime"); // us
    if (exposure && *exposure * 1e-6 > seconds)
        reasons.push_back(
            fmt::format("ExposureTime is {}; --frame-timeout gives it time", time_text(*exposure * 1e-6)));
    if (!reasons.empty()) return reasons;

    // Nothing of the camera's settings explains it: something between it and us.
    const auto started = feature_number(stream, "StreamStartedFrameCount");
    const auto lost = feature_number(stream, "StreamLostFrameCount");
    if (lost && *lost > 0) {
        reasons.push_back(fmt::format("{:.0f} frames were lost on the way: 'orv-gentl doctor' looks at buffers and "
                                      "MTU",
                                      *lost));
    } else if (started && *started > static_cast<double>(had_frames)) {
        reasons.emplace_back("frames begin and do not end: packets are lost on the way; 'orv-gentl doctor' looks at "
                             "buffers and MTU");
    } else if (started) {
        reasons.push_back(fmt::format(
            "no packet comes from the camera, though it should run free: it sends nothing, a firewall drops its UDP "
            "packets, or something between cannot carry packets of {} bytes; 'orv-gentl doctor' looks at this host",
            packet_size));
    } else {
        reasons.emplace_back("camera and library tell no reason; 'orv-gentl doctor' looks at this host");
    }
    return reasons;
}

} // namespace cli
