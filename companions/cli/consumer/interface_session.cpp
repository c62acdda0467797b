#include "interface_session.h"

#include "device_choice.h"

#include <fmt/format.h>

#include <charconv>

namespace cli {

using namespace GenTL;

interface_session::interface_session(std::shared_ptr<const gentl_library> library,
                                     std::shared_ptr<const tl_interface> interface)
    : lib(std::move(library)), owner(std::move(interface)), nodes(std::make_unique<node_map>(*lib, owner->get())) {}

interface_session interface_session::of_device(const common_options& options) {
    const found_devices found = find_devices(options);
    const auto& [entry, interface] = choose_device(found, options);
    interface_session session{found.lib, interface};
    session.device = entry;
    if (!session.select(entry.id)) throw std::runtime_error(fmt::format("Device '{}' has just gone.", entry.id));
    return session;
}

bool interface_session::select(const std::string& device_id) {
    auto* selector = nodes->document().find<GenICam::IInteger>("DeviceSelector");
    if (selector == nullptr) throw std::runtime_error("The interface has no feature 'DeviceSelector'.");
    const auto last = selector->get_max(GenICam::access_flags::bypass_cache);
    for (int64_t i = 0; last && i <= *last; ++i) {
        if (selector->set_val(i, 0)) return false;
        if (text("DeviceID") == device_id) return true;
    }
    return false;
}

template <class F>
void interface_session::told(F&& access) const {
    try {
        access();
    } catch (const std::runtime_error& failure) {
        GC_ERROR code = GC_ERR_SUCCESS;
        char words[1024] = {};
        size_t size = sizeof words;
        if (lib->GCGetLastError(&code, words, &size) != GC_ERR_SUCCESS || code == GC_ERR_SUCCESS) throw;
        throw call_failed("GCWritePort", code, words);
    }
}

void interface_session::run(const std::string& command) const {
    told([&] { execute(require_node(*nodes, command)); });
}

void interface_session::set(const std::string& feature, const std::string& value) const {
    told([&] { set_from_text(require_node(*nodes, feature), value); });
}

void interface_session::set_number(const std::string& feature, int64_t value) const {
    set(feature, std::to_string(value));
}

std::string interface_session::text(const std::string& feature) const {
    GenICam::INode& node = require_node(*nodes, feature);
    if (auto* string = GenICam::node_cast<GenICam::IString>(&node))
        return string->get_val(GenICam::access_flags::bypass_cache).value_or("");
    std::string error;
    return value_text(node, error);
}

nlohmann::json interface_session::address() const {
    nlohmann::json item{{"id", text("DeviceID")}, {"reachable", text("DeviceReachableStatus")}};
    for (const auto& [key, feature] : {std::pair{"address", "GevDeviceIPAddress"},
                                       {"mask", "GevDeviceSubnetMask"},
                                       {"gateway", "GevDeviceGateway"},
                                       {"mac", "GevDeviceMACAddress"}})
        item[key] = text(feature);
    return item;
}

void interface_session::update_list() const {
    bool8_t changed = 0;
    lib->check("IFUpdateDeviceList", lib->IFUpdateDeviceList(owner->get(), &changed, 1000));
}

uint32_t parse_ip(const std::string& text) {
    const auto wrong = [&] {
        return failure(cause::arguments, fmt::format("'{}' is no IPv4 address such as 192.168.0.10.", text));
    };
    uint32_t address = 0;
    const char* at = text.data();
    const char* const end = at + text.size();
    for (int part = 0; part < 4; ++part) {
        if (part != 0 && (at == end || *at++ != '.')) throw wrong();
        uint8_t value = 0;
        const auto [behind, error] = std::from_chars(at, end, value);
        // A leading zero means octal to some and nothing to others.
        if (error != std::errc{} || (*at == '0' && behind != at + 1)) throw wrong();
        address = address << 8 | value;
        at = behind;
    }
    if (at != end) throw wrong();
    return address;
}

std::string ip_text(uint32_t address) {
    return fmt::format("{}.{}.{}.{}", address >> 24, address >> 16 & 255, address >> 8 & 255, address & 255);
}

} // namespace cli
