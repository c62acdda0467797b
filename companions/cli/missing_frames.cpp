#include "missing_frames.h"

#include <fmt/format.h>

#include <optional>

namespace cli {

using namespace GenICam;

namespace {

std::string text_of(const node_map& nodes, const char* name) {
    INode* node = nodes.document().find_node(name);
    std::string error;
    return node == nullptr ? std::string{} : value_text(*node, error, access_flags::bypass_cache);
}

std::optional<double> number_of(const node_map& nodes, const char* name) {
    INode* node = nodes.document().find_node(name);
    if (auto* real = node_cast<IFloat>(node)) {
        const auto value = real->get_val(access_flags::bypass_cache);
        return value ? std::optional{*value} : std::nullopt;
    }
    if (auto* integer = node_cast<IInteger>(node)) {
        const auto value = integer->get_val(access_flags::bypass_cache);
        return value ? std::optional{static_cast<double>(*value)} : std::nullopt;
    }
    return std::nullopt;
}

// The triggers that are on, with what they wait for. The selector is put back.
void add_triggers(const node_map& camera, std::vector<std::string>& reasons) {
    const auto look = [&](const std::string& which) {
        if (text_of(camera, "TriggerMode") != "On") return;
        const std::string source = text_of(camera, "TriggerSource");
        std::string remedy = fmt::format("{}--set TriggerMode=Off lets it run free",
                                         which.empty() ? "" : fmt::format("--set TriggerSelector={} ", which));
        if (source == "Software") remedy = "'orv-gentl exec TriggerSoftware' or the application triggers it; " + remedy;
        reasons.push_back(fmt::format("the camera waits for a trigger{}{}: {}",
                                      which.empty() ? "" : fmt::format(" {}", which),
                                      source.empty() ? "" : fmt::format(" from {}", source), remedy));
    };
    auto* selector = node_cast<IEnumeration>(camera.document().find_node("TriggerSelector"));
    if (selector == nullptr) return look("");
    const std::string before = text_of(camera, "TriggerSelector");
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

} // namespace

std::vector<std::string> why_no_frames(const node_map& camera, const node_map& stream, std::chrono::milliseconds waited,
                                       uint64_t had_frames, int64_t packet_size) {
    std::vector<std::string> reasons;
    add_triggers(camera, reasons);
    const std::string mode = text_of(camera, "AcquisitionMode");
    if (had_frames != 0 && (mode == "SingleFrame" || mode == "MultiFrame")) {
        const std::string most = mode == "SingleFrame" ? "1" : text_of(camera, "AcquisitionFrameCount");
        reasons.push_back(fmt::format("AcquisitionMode is {}: the camera sends {} and stops; --set "
                                      "AcquisitionMode=Continuous, or --frames {}",
                                      mode, most.empty() ? "some" : most, had_frames));
    }
    const double seconds = std::chrono::duration<double>{waited}.count();
    const auto rate = number_of(camera, "AcquisitionFrameRate");
    if (rate && *rate > 0 && 1 / *rate > seconds)
        reasons.push_back(fmt::format(
            "AcquisitionFrameRate is {}: a frame takes {:.1f} s; --frame-timeout gives it time", *rate, 1 / *rate));
    const auto exposure = number_of(camera, "ExposureTime"); // us
    if (exposure && *exposure * 1e-6 > seconds)
        reasons.push_back(fmt::format("ExposureTime is {:.1f} s; --frame-timeout gives it time", *exposure * 1e-6));
    if (!reasons.empty()) return reasons;

    // Nothing of the camera's settings explains it: something between it and us.
    const auto started = number_of(stream, "StreamStartedFrameCount");
    const auto lost = number_of(stream, "StreamLostFrameCount");
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
