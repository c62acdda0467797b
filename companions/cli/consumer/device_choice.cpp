#include "device_choice.h"

#include "../output/printable.h"
#include "feature_number.h"
#include "nearest_names.h"

#include <fmt/format.h>

#include <algorithm>

namespace cli {

namespace {

// One line of the list that an error shows.
std::string line_of(const device_entry& device) {
    std::string line = device.id;
    if (!device.serial.empty()) line += fmt::format("  serial {}", device.serial);
    if (!device.user_name.empty()) line += fmt::format("  name '{}'", device.user_name);
    if (!device.address.empty()) line += fmt::format("  {}", device.address);
    return fmt::format("\n  {}  on {}", printable(line), device.interface_id);
}

bool is_exactly(const device_entry& device, const std::string& words) {
    return device.id == words || device.serial == words || device.user_name == words || device.address == words ||
           (!device.mac.empty() && lower_case(device.mac) == lower_case(words));
}

bool holds(const device_entry& device, const std::string& words) {
    return device.id.find(words) != device.id.npos || device.display_name.find(words) != device.display_name.npos;
}

} // namespace

void add_places(found_devices& found) {
    for (auto& [device, interface] : found.devices) {
        if (!device.address.empty()) continue; // told with the first device of its interface
        try {
            const node_map nodes{*found.lib, interface->get()};
            auto* selector = nodes.document().find<GenICam::IInteger>("DeviceSelector");
            const auto last = selector == nullptr ? GenICam::fail(GenICam::genicam_errc::not_implemented)
                                                  : selector->get_max(GenICam::access_flags::bypass_cache);
            for (int64_t i = 0; last && i <= *last; ++i) {
                if (selector->set_val(i, 0)) break;
                const std::string id = feature_text(nodes, "DeviceID");
                for (auto& [other, its_interface] : found.devices) {
                    if (its_interface != interface || other.id != id) continue;
                    other.address = feature_text(nodes, "GevDeviceIPAddress");
                    other.mask = feature_text(nodes, "GevDeviceSubnetMask");
                    other.mac = feature_text(nodes, "GevDeviceMACAddress");
                    other.reachable = feature_text(nodes, "DeviceReachableStatus");
                }
            }
        } catch (const call_failed& failed) {
            if (failed.why() == cause::lost) throw;
            // A producer whose interfaces have no document says less.
        }
    }
}

const std::pair<device_entry, std::shared_ptr<const tl_interface>>& choose_device(const found_devices& found,
                                                                                  const common_options& options) {
    std::vector<const std::pair<device_entry, std::shared_ptr<const tl_interface>>*> fitting;
    const auto collect = [&](auto&& fits) {
        for (const auto& candidate : found.devices)
            if (fits(candidate.first)) fitting.push_back(&candidate);
    };
    if (options.device.empty()) {
        collect([](const device_entry&) { return true; });
    } else {
        collect([&](const device_entry& device) { return is_exactly(device, options.device); });
        if (fitting.empty()) collect([&](const device_entry& device) { return holds(device, options.device); });
    }
    if (fitting.size() == 1) return *fitting.front();

    std::string list;
    if (fitting.empty())
        for (const auto& candidate : found.devices) list += line_of(candidate.first);
    else
        for (const auto* candidate : fitting) list += line_of(candidate->first);
    if (found.devices.empty())
        throw failure(cause::no_camera,
                      fmt::format("No camera was found{}. 'orv-gentl doctor' tells why.",
                                  options.device.empty() ? "" : fmt::format(", so none is '{}'", options.device)));
    if (fitting.empty())
        throw failure(cause::no_camera, fmt::format("No camera is '{}'. There are:{}", options.device, list));
    const bool by_interface =
        std::ranges::all_of(fitting, [&](const auto* each) { return each->first.id == fitting.front()->first.id; });
    throw failure(cause::ambiguous,
                  fmt::format("{} cameras fit{}; say which by {}:{}", fitting.size(),
                              options.device.empty() ? "" : fmt::format(" '{}'", options.device),
                              by_interface ? "--interface" : "--device with id, serial number or address", list));
}

void keep_meant(found_devices& found, const common_options& options) {
    if (options.device.empty()) return;
    const auto fits = [&](const auto& each) {
        return is_exactly(each.first, options.device) || holds(each.first, options.device);
    };
    if (std::ranges::none_of(found.devices, fits)) static_cast<void>(choose_device(found, options)); // throws why
    std::erase_if(found.devices, [&](const auto& each) { return !fits(each); });
}

} // namespace cli
