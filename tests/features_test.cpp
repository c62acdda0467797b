// Every feature of a camera read, and every writable one changed, read back from the device and restored: Debian's fake
// camera, whose document is not ours, and our own.
#include "support/test_system.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <thread>

using namespace test_support;
using namespace GenICam;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using names = std::set<std::string>;

struct outcome {
    names read;                      // values and limits without an error
    names written;                   // changed, read back, restored
    names held;                      // of them, those that live in the document, not in the camera: most selectors
    names single;                    // writable, but the limits leave one value
    names formulas;                  // the document gives no way to write: a formula computes them
    std::vector<std::string> faults; // all else, with the reason
};

template <class T>
std::optional<T> neighbour(T value, T min, T max, T inc) {
    if (value <= max - inc) return value + inc;
    if (value >= min + inc) return value - inc;
    return std::nullopt;
}

template <class Node, class T>
std::error_code write(Node& node, const T& value) {
    if constexpr (std::is_same_v<Node, IEnumeration>) {
        return node.set_selected_entry(node.find_entry_by_value(value), 0);
    } else {
        return node.set_val(value, 0);
    }
}

// Writes another legal value, reads it past the cache and restores the first. `device` is the same node of a second
// document: what that one reads as well is what the camera holds.
template <class Node, class T>
void change(Node& node, Node& device, T before, std::optional<T> other, outcome& result,
            const std::function<bool(const T& got, const T& wanted)>& same) {
    const std::string name{node.get_name()};
    if (!other) {
        result.single.insert(name);
        return;
    }
    const auto fault = [&](const std::string& what) { result.faults.push_back(name + ": " + what); };
    if (const std::error_code error = write(node, *other)) {
        if (error == genicam_errc::not_implemented) {
            result.formulas.insert(name);
        } else {
            fault("write: " + error.message());
        }
        return;
    }
    const auto holds = [&](Node& asked, const T& wanted) {
        const auto value = asked.get_val(access_flags::bypass_cache);
        return value && same(*value, wanted);
    };
    if (!holds(node, *other)) fault("does not read what was written");
    const bool in_camera = holds(device, *other);
    if (const std::error_code error = write(node, before)) fault("restore: " + error.message());
    if (!holds(node, before) || !holds(device, before)) fault("does not read what was restored");
    if (!in_camera) result.held.insert(name);
    result.written.insert(name);
}

template <class Number>
void number(Number& node, Number& device, bool writable, outcome& result) {
    using T = typename decltype(node.get_val(0))::value_type;
    const auto value = node.get_val(0);
    const auto min = node.get_min(0);
    const auto max = node.get_max(0);
    const auto inc = node.get_inc(0);
    // A float need not have an increment.
    const bool lacks_inc = !inc && std::is_floating_point_v<T> && inc.error() == genicam_errc::not_implemented;
    const std::string name{node.get_name()};
    if (!value || !min || !max || (!inc && !lacks_inc)) {
        result.faults.push_back(name + ": value, minimum, maximum or increment cannot be read");
        return;
    }
    if (*value < *min || *value > *max) result.faults.push_back(name + ": outside its limits");
    result.read.insert(name);
    if (!writable) return;
    T step = inc && *inc > 0 ? *inc : T{1};
    // A tenth, so that a float's change is more than what a converter into whole numbers may round away.
    if (std::is_floating_point_v<T>)
        step *= static_cast<T>(std::max(1.0, std::round(static_cast<double>(*value / 10 / step))));
    change<Number, T>(node, device, *value, neighbour<T>(*value, *min, *max, step), result, [](T got, T wanted) {
        return std::is_integral_v<T>
                   ? got == wanted
                   : std::abs(static_cast<double>(got - wanted)) <= 1e-4 * std::abs(static_cast<double>(wanted));
    });
}

void exercise(INode& node, INode& device, outcome& result) {
    const std::string access = cli::access_text(node);
    if (access == "NA" || access == "NI" || access == "WO") return;
    const bool writable = access == "RW";
    const std::string name{node.get_name()};
    const auto taken = [&](const auto& value) {
        if (value) {
            result.read.insert(name);
        } else {
            result.faults.push_back(name + ": read: " + value.error().message());
        }
        return value.has_value() && writable;
    };
    if (auto* integer = node_cast<IInteger>(&node)) {
        number(*integer, *node_cast<IInteger>(&device), writable, result);
    } else if (auto* real = node_cast<IFloat>(&node)) {
        number(*real, *node_cast<IFloat>(&device), writable, result);
    } else if (auto* flag = node_cast<IBoolean>(&node)) {
        if (const auto value = flag->get_val(0); taken(value)) {
            change<IBoolean, bool>(*flag, *node_cast<IBoolean>(&device), *value, !*value, result, std::equal_to<>{});
        }
    } else if (auto* text = node_cast<IString>(&node)) {
        if (const auto value = text->get_val(0); taken(value)) {
            change<IString, std::string>(*text, *node_cast<IString>(&device), *value, *value == "abc" ? "xyz" : "abc",
                                         result, std::equal_to<>{});
        }
    } else if (auto* choice = node_cast<IEnumeration>(&node)) {
        const auto selected = choice->get_selected_entry(0);
        if (!taken(selected)) return;
        std::optional<int64_t> other;
        for (const IEnumEntry* entry : choice->get_entries()) {
            if (entry != *selected && entry->is_implemented() && entry->is_available()) other = entry->get_value();
        }
        change<IEnumeration, int64_t>(*choice, *node_cast<IEnumeration>(&device), (*selected)->get_value(), other,
                                      result, std::equal_to<>{});
    }
}

using node_list = std::vector<INode*>;

outcome exercise_all(open_camera& camera, const node_list& nodes) {
    outcome result;
    GenTL::PORT_HANDLE port = nullptr;
    camera.lib->check("DevGetPort", camera.lib->DevGetPort(camera.device->get(), &port));
    const cli::node_map device{*camera.lib, port};
    for (INode* node : nodes) exercise(*node, *device.document().find_node(node->get_name()), result);
    return result;
}

} // namespace

#ifdef ORV_FAKE_CAMERA
TEST(Features, OfAnIndependentCameraReadAndWrite) {
    test_system own{{"--discover", "127.0.0.1"}};
    const process fake{{ORV_FAKE_CAMERA, "-i", "127.0.0.1"}, own.folder() / "fake"};
    own.start_service();
    open_camera camera{"GV01"};
    node_list nodes; // registers included, but for those of the service, which take only what their features may
    camera.remote().document().for_each_node([&](INode* node) {
        if (!node->get_name().starts_with("SoftwareRegister_")) nodes.push_back(node);
    });
    const outcome result = exercise_all(camera, nodes);
    EXPECT_THAT(result.faults, IsEmpty());
    EXPECT_THAT(result.single, ElementsAre("TriggerActivation"));
    EXPECT_THAT(result.held, ElementsAre("AutoColorTemperatureLightSelector", "AutoColorTemperatureLightSelector_Value",
                                         "AutoWhiteBalanceSelector", "AutoWhiteBalanceSelector_Value",
                                         "SoftwareColorMatrixSelector", "SoftwareColorMatrixSelector_Value",
                                         "TLParamsLocked", "TriggerSelector", "TriggerSelectorInteger"));
    EXPECT_THAT(result.formulas, ElementsAre("PayloadSize"));
    EXPECT_GE(result.read.size(), 50U);
    EXPECT_GE(result.written.size(), 30U);
    for (const char* name : {"Width", "Height", "OffsetX", "BinningVertical", "PixelFormat", "AcquisitionMode",
                             "AcquisitionFrameRate", "TriggerMode", "ExposureTimeAbs", "GainRaw", "GainAuto"}) {
        EXPECT_THAT(result.written, Contains(name));
    }
}
#endif

TEST(Features, OfOurOwnCameraReadAndWrite) {
    test_system own;
    own.start_camera();
    own.start_service();
    open_camera camera;
    node_list nodes;
    for (INode* node : camera.remote().document().get_root_features()) {
        const std::string_view name = node->get_name();
        if (name == "GevCCP") continue; // another value would give the camera up
        // These ports have data only while an event or a chunk is at hand.
        if (name.starts_with("Event") || (name.starts_with("Chunk") && name != "ChunkModeActive")) continue;
        nodes.push_back(node);
    }
    const outcome result = exercise_all(camera, nodes);
    EXPECT_THAT(result.faults, IsEmpty());
    EXPECT_THAT(result.single,
                ElementsAre("GevStreamChannelSelector", "LUTSelector", "OffsetX", "OffsetY", "TriggerSelector"));
    EXPECT_THAT(result.held, ElementsAre("AutoColorTemperatureLightSelector", "AutoWhiteBalanceSelector",
                                         "DeviceTemperatureSelector", "GainSelector", "LUTIndex", "LineSelector",
                                         "SoftwareColorMatrixSelector"));
    EXPECT_THAT(result.formulas, ElementsAre("BlackLevel", "HeightMax", "LineStatus", "WidthMax"));
    EXPECT_GE(result.read.size(), 60U);
    EXPECT_GE(result.written.size(), 64U);
    for (const char* name :
         {"AutoExposure", "AutoGainMaximum", "AutoWhiteBalance", "AutoRegionWidth", "SoftwareHue", "SoftwareDenoise",
          "SoftwareColorMatrixValue", "Width", "Height", "PixelFormat", "ExposureTime", "Gain", "AcquisitionFrameRate",
          "DeviceUserID", "GevSCPSPacketSize", "GammaEnable", "LUTValue"}) {
        EXPECT_THAT(result.written, Contains(name));
    }
}
