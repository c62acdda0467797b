#include "camera_plan.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace cli {

using namespace GenICam;

namespace {

constexpr auto limit_feature = "DeviceLinkThroughputLimit";
constexpr auto limit_mode_feature = "DeviceLinkThroughputLimitMode";
constexpr auto delay_feature = "GevSCPD";
constexpr auto size_feature = "GevSCPSPacketSize";

constexpr double megabyte = 1e6;

// Above this the library does not look for packet sizes when a stream starts.
constexpr uint64_t largest_packet_tried = 9216;

number_range range_of(const IInteger& feature) {
    number_range range;
    range.min = std::max<int64_t>(0, feature.get_min(access_flags::bypass_cache).value_or(0));
    range.max = feature.get_max(access_flags::bypass_cache).value_or(INT64_MAX);
    range.increment = std::max<int64_t>(1, feature.get_inc(access_flags::bypass_cache).value_or(1));
    return range;
}

// Nothing where the feature is not there or not to be written, for whatever reason but a lock.
const IInteger* writable_integer(const node_map& camera, const char* name) {
    INode* node = camera.document().find_node(name);
    return node != nullptr && access_text(*node) == "RW" ? node_cast<IInteger>(node) : nullptr;
}

bool takes_entry(const node_map& camera, const char* name, const std::string& entry) {
    const auto* choice = node_cast<IEnumeration>(camera.document().find_node(name));
    if (choice == nullptr) return false;
    const std::vector<std::string> entries = entries_of(*choice);
    return std::ranges::find(entries, entry) != entries.end();
}

void read_frame_rate(camera_plan& plan, const node_map& camera, double wished) {
    if (wished > 0) {
        plan.shape.frame_rate = wished;
        plan.rate_source = "--rate";
        return;
    }
    const auto take = [&](double rate, const std::string& source) {
        if (rate <= 0 || (plan.shape.frame_rate > 0 && rate >= plan.shape.frame_rate)) return;
        plan.shape.frame_rate = rate;
        plan.rate_source = source;
    };
    const std::string enabled = feature_text(camera, "AcquisitionFrameRateEnable");
    const bool is_set = enabled != "false" && feature_text(camera, "AcquisitionFrameRateMode") != "Off";
    for (const char* name : {"AcquisitionFrameRate", "AcquisitionFrameRateAbs"})
        if (const auto rate = feature_number(camera, name); rate && is_set) take(*rate, name);
    // What the camera works out from exposure, readout and the like.
    for (const char* name : {"ResultingFrameRate", "AcquisitionResultingFrameRate", "ResultingFrameRateAbs"})
        if (const auto rate = feature_number(camera, name)) take(*rate, name);
    if (plan.shape.frame_rate == 0) {
        const auto* rate = node_cast<IFloat>(camera.document().find_node("AcquisitionFrameRate"));
        const auto highest = rate == nullptr ? std::nullopt : std::optional{rate->get_max(access_flags::bypass_cache)};
        if (highest && *highest) take(**highest, "the highest AcquisitionFrameRate, as it is not switched on");
    }
    if (plan.shape.frame_rate == 0)
        throw failure(cause::feature,
                      fmt::format("Camera '{}' does not tell its frame rate: give it with --rate.", plan.id));
    if (feature_text(camera, "TriggerMode") == "On")
        plan.notes.emplace_back("it waits for triggers: --rate tells how often they come");
}

void read_packet_size(camera_plan& plan, const node_map& camera, const plan_wishes& wishes) {
    auto* feature = node_cast<IInteger>(camera.document().find_node(size_feature));
    const auto now = feature_number(camera, size_feature);
    if (wishes.packet_size != 0) {
        plan.shape.packet_size = wishes.packet_size;
        plan.packet_size_source = "found on the path";
    } else if (feature == nullptr || wishes.mtu == 0) {
        if (!now) throw failure(cause::feature, fmt::format("Camera '{}' does not tell its packet size.", plan.id));
        plan.shape.packet_size = static_cast<uint64_t>(*now);
        plan.packet_size_source = "as it is";
    } else {
        const auto size = range_of(*feature).at_most(static_cast<double>(std::min(wishes.mtu, largest_packet_tried)));
        if (!size)
            throw failure(cause::feature, fmt::format("No packet of camera '{}' fits the interface's MTU of {} bytes.",
                                                      plan.id, wishes.mtu));
        plan.shape.packet_size = static_cast<uint64_t>(*size);
        plan.packet_size_source = fmt::format("the largest for camera and interface, whose MTU is {}", wishes.mtu);
    }
}

} // namespace

camera_plan read_camera(const node_map& camera, const std::string& id, const plan_wishes& wishes) {
    camera_plan plan;
    plan.id = id;
    plan.shape.payload_size = static_cast<uint64_t>(require_integer(camera, "PayloadSize"));
    plan.shape.extended_ids = feature_text(camera, "GevGVSPExtendedIDMode") == "On";
    read_frame_rate(plan, camera, wishes.frame_rate);
    read_packet_size(plan, camera, wishes);
    plan.cost = cost_of(plan.shape);
    plan.own_link = wishes.link;
    if (const auto speed = feature_number(camera, "DeviceLinkSpeed"); speed && *speed > 0) {
        plan.own_link = *speed;
        plan.own_link_known = true;
    }
    if (const auto ticks = feature_number(camera, "GevTimestampTickFrequency"); ticks && *ticks > 0)
        plan.ticks_per_second = static_cast<uint64_t>(*ticks);
    // Some cameras let the limit be written only while it is on.
    const bool can_be_on = takes_entry(camera, limit_mode_feature, "On");
    const auto* limit = node_cast<IInteger>(camera.document().find_node(limit_feature));
    if (limit != nullptr && (can_be_on || writable_integer(camera, limit_feature) != nullptr)) {
        plan.has_limit = true;
        plan.limit_takes = range_of(*limit);
    }
    if (const auto* delay = node_cast<IInteger>(camera.document().find_node(delay_feature)); delay != nullptr) {
        plan.has_delay = plan.ticks_per_second != 0;
        plan.delay_takes = range_of(*delay);
    }
    return plan;
}

void choose_settings(camera_plan& plan, const node_map& camera, bool limited, pacing by) {
    plan.settings.clear();
    plan.sends = plan.own_link;
    plan.paced = true;
    if (!limited) return;
    const auto limit = plan.has_limit && by != pacing::delay ? plan.limit_takes.at_most(plan.share) : std::nullopt;
    const bool has_mode = takes_entry(camera, limit_mode_feature, "On");
    const double delay_now = feature_number(camera, delay_feature).value_or(0);
    if (limit) {
        if (has_mode) plan.settings.push_back({{}, limit_mode_feature, "On"});
        plan.settings.push_back({{}, limit_feature, std::to_string(*limit)});
        // Both at once would be slower than either.
        if (delay_now > 0) plan.settings.push_back({{}, delay_feature, "0"});
        plan.sends = std::min(plan.own_link, static_cast<double>(*limit));
        return;
    }
    const auto delay = plan.has_delay && by != pacing::limit
                           ? packet_delay(plan.cost, plan.share, plan.own_link, plan.ticks_per_second, plan.delay_takes)
                           : std::nullopt;
    if (!delay) {
        plan.paced = false;
        plan.notes.push_back(
            by == pacing::any
                ? "nothing keeps it to its share: neither DeviceLinkThroughputLimit nor GevSCPD takes it"
                : fmt::format("{} does not take its share", by == pacing::limit ? limit_feature : delay_feature));
        return;
    }
    if (takes_entry(camera, limit_mode_feature, "Off"))
        plan.settings.push_back({{}, limit_mode_feature, "Off"});
    else if (plan.has_limit)
        plan.settings.push_back({{}, limit_feature, std::to_string(plan.limit_takes.max)});
    plan.settings.push_back({{}, delay_feature, std::to_string(*delay)});
    plan.sends = rate_with_delay(plan.cost, plan.own_link, plan.ticks_per_second, *delay);
}

double camera_plan::highest_frame_rate() const { return sends / static_cast<double>(cost.wire_per_frame); }

nlohmann::json camera_plan::to_json() const {
    // Of a plan that does not fit.
    const auto or_null = [this](double value) { return sends > 0 ? nlohmann::json(value) : nlohmann::json(); };
    nlohmann::json set = nlohmann::json::array();
    for (const setting& each : settings) set.push_back({{"name", each.name}, {"value", each.value}});
    return {{"id", id},
            {"payload_size", shape.payload_size},
            {"frame_rate", shape.frame_rate},
            {"frame_rate_source", rate_source},
            {"packet_size", shape.packet_size},
            {"packet_size_source", packet_size_source},
            {"extended_ids", shape.extended_ids},
            {"packets_per_frame", cost.packets},
            {"wire_bytes_per_packet", cost.wire_per_packet},
            {"wire_bytes_per_frame", cost.wire_per_frame},
            {"needs_bytes_per_s", cost.bytes_per_second},
            {"own_link_bytes_per_s", own_link},
            {"own_link_known", own_link_known},
            {"share_bytes_per_s", or_null(share)},
            {"paced", paced},
            {"settings", set},
            {"sends_bytes_per_s", or_null(sends)},
            {"highest_frame_rate", or_null(highest_frame_rate())},
            {"notes", notes}};
}

std::string camera_plan::arithmetic() const {
    const uint64_t header = shape.packet_size - cost.data_per_packet - 28;
    std::string text = fmt::format("{}\n", id);
    const auto line = [&text](const std::string& words) { text += "  " + words + '\n'; };
    line(fmt::format("packets of {} bytes: {}", shape.packet_size, packet_size_source));
    line(fmt::format(
        "a frame of {} bytes: {} packets with {} each ({} - 28 IP, UDP - {} stream), leader, trailer: {} packets",
        shape.payload_size, cost.packets - 2, cost.data_per_packet, shape.packet_size, header, cost.packets));
    line(fmt::format("a packet takes {} + 18 (Ethernet) + 20 (preamble, gap) = {} bytes of the link, a frame {}",
                     shape.packet_size, cost.wire_per_packet, cost.wire_per_frame));
    line(fmt::format("{:g} frames per second ({}) need {:.2f} MB/s", shape.frame_rate, rate_source,
                     cost.bytes_per_second / megabyte));
    if (sends > 0 && paced && settings.empty()) {
        line("no limit: all cameras' own links together carry no more than the shared one");
    } else if (!settings.empty()) {
        std::string words;
        for (const setting& each : settings) words += fmt::format(" {}={}", each.name, each.value);
        line(fmt::format("share {:.2f} MB/s: set{}", share / megabyte, words));
        if (settings.back().name == delay_feature && settings.back().value != "0") {
            const auto bytes = static_cast<double>(cost.wire_per_packet);
            line(fmt::format("  {:.2f} us a packet at its share, less {:.2f} us on its own link{}, in ticks of {} Hz",
                             bytes / share * 1e6, bytes / own_link * 1e6,
                             own_link_known ? "" : " (taken to be as fast as this one)", ticks_per_second));
        }
        line(fmt::format("  it sends {:.2f} MB/s at most, enough for {:.1f} frames per second", sends / megabyte,
                         highest_frame_rate()));
    }
    for (const std::string& note : notes) line("note: " + note);
    return text;
}

} // namespace cli
