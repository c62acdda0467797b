#include "interface_instance.h"

#include "device_instance.h"

#include <gds_gentl_producer/error_translation.h>

#include <string>

namespace gevdrv::gentl {

using namespace GenTL;
using namespace GenTL::Producer;
using Util::GenApiInterfaceBuilder;
namespace catalogue = ipc_rpc::catalogue;

namespace {

constexpr uint32_t most_reachable_status = 2;

template <class T>
Util::ValueGetter<T> getter_of(const std::atomic<T>& value) {
    return [&value]() -> std::expected<T, Error> { return value.load(); };
}

template <class T>
Util::ValueSetter<T> setter_of(std::atomic<T>& value) {
    return [&value](T new_value) {
        value = new_value;
        return success();
    };
}

Error result_of(const std::expected<void, std::error_code>& call, std::string_view name) {
    return call ? success() : gds_producer::to_gentl_error(call.error(), name);
}

} // namespace

std::expected<std::shared_ptr<IDevice>, Error> interface_instance::make_device_(const DeviceInfo& info,
                                                                                DEVICE_ACCESS_FLAGS flags,
                                                                                ipc_rpc::client_object_handle opened) {
    auto device = std::make_shared<device_instance>(*this, info, flags, std::move(opened));
    if (Error error = device->init(); error.failed()) return std::unexpected(std::move(error));
    return device;
}

Error interface_instance::send_force_ip() {
    const auto device = selected_device_info();
    if (!device) return {GC_ERR_INVALID_INDEX, "Node device selected to send ForceIP"};
    const uint32_t address = force_ip_address;
    if (address == 0) return {GC_ERR_INVALID_VALUE, "Invalid IP-Address specified."};
    const auto done = service_handle().invoke<catalogue::send_force_ip>(device->mac_address, address,
                                                                        force_subnet_mask.load(), force_gateway.load());
    // No host's address, as 0 is none. The value is asked for: as a condition most of the cameras' errors are it, too.
    if (!done && done.error() == std::make_error_code(std::errc::invalid_argument))
        return {GC_ERR_INVALID_VALUE, "Invalid IP-Address specified."};
    return result_of(done, "send_force_ip");
}

Error interface_instance::send_action(bool to_all_interfaces) {
    return result_of(service_handle().invoke<catalogue::send_action_cmd>(
                         action_device_key.load(), action_group_key.load(), action_group_mask.load(),
                         action_scheduled_time_enable.load(), action_scheduled_time.load(), 0U,
                         to_all_interfaces ? 1U : 0U),
                     "send_action_cmd");
}

Error interface_instance::execute_device_function(std::string_view name) {
    const auto device = selected_device_info();
    if (!device) return {GC_ERR_INVALID_INDEX, "Node device selected to send ForceIP"};
    return result_of(service_handle().invoke<catalogue::execute_device_function>(device->id, std::string{name}), name);
}

std::expected<uint32_t, Error> interface_instance::reachable_status() {
    const auto device = selected_device_info();
    if (!device) return std::unexpected(Error{GC_ERR_INVALID_INDEX, "No device selected to send ForceIP to"});
    const auto status = service_handle().invoke<catalogue::get_device_dyn_info>(device->id);
    if (!status) return std::unexpected(gds_producer::to_gentl_error(status.error(), "get_device_dyn_info"));
    if (*status <= most_reachable_status) last_reachable_status = *status;
    return last_reachable_status.load();
}

void interface_instance::build_register_map(GenApiInterfaceBuilder& builder) {
    producer_interface_base::build_register_map(builder);
    add_force_ip(builder);
    add_actions(builder);
    add_ip_configuration(builder);
}

void interface_instance::add_force_ip(GenApiInterfaceBuilder& builder) {
    builder.add_command("GevDeviceForceIP", [this] { return send_force_ip(); });
    const auto address = [&](std::string_view name, std::atomic<uint32_t>& value) {
        builder.add_rw_ip_address(name, getter_of(value), setter_of(value));
    };
    address("GevDeviceForceIPAddress", force_ip_address);
    address("GevDeviceForceSubnetMask", force_subnet_mask);
    address("GevDeviceForceGateway", force_gateway);
}

void interface_instance::add_actions(GenApiInterfaceBuilder& builder) {
    builder.add_command("ActionCommand", [this] { return send_action(false); });
    auto& to_all = builder.add_command(
        // "For" in the register's name is meant: consumers may know it.
        "ActionCommandToAllInterfaces", [this] { return send_action(true); }, "ActionCommandForAllInterfaces_Register");
    to_all.display_name = "Action Command To All Interfaces";
    to_all.tool_tip = "Send ActionCommand to all interfaces.";
    const auto key = [&](std::string_view name, std::atomic<uint32_t>& value) {
        builder.add_rw_integer<uint32_t>(name, getter_of(value), setter_of(value));
    };
    key("ActionDeviceKey", action_device_key);
    key("ActionGroupKey", action_group_key);
    key("ActionGroupMask", action_group_mask);
    builder.add_rw_boolean("ActionScheduledTimeEnable", getter_of(action_scheduled_time_enable),
                           setter_of(action_scheduled_time_enable), "ActionScheduledTimeEnable_Register");
    builder.add_rw_integer<uint64_t>("ActionScheduledTime", getter_of(action_scheduled_time),
                                     setter_of(action_scheduled_time), "ActionScheduledTime_Register");
    builder.add_category("ActionControl", {"ActionCommandToAllInterfaces"});
}

void interface_instance::add_ip_configuration(GenApiInterfaceBuilder& builder) {
    auto& status = builder.add_ro_enumeration(
        "DeviceReachableStatus", [this] { return reachable_status(); },
        {{"Discovered", 0}, {"Unreachable", 1}, {"Reachable", 2}}, "DeviceReachableStatus_Register");
    status.display_name = "Device Reachable Status";
    status.tool_tip = "Current device reachability state.";
    status.entries[0].tool_tip = "Device was recently discovered, reachability is still unclear.";
    status.entries[1].tool_tip = "The device is currently unreachable and has to reconfigured to be use able.";
    status.entries[2].tool_tip = "The device is currently reachable.";
    builder.add_category("DeviceEnumeration", {"DeviceReachableStatus"});
    builder.select("DeviceSelector", {"DeviceReachableStatus"});

    const auto function = [&](const char* name, const char* register_name, const char* display_name,
                              const char* tool_tip) {
        auto& node = builder.add_command(
            name, [this, name] { return execute_device_function(name); }, register_name);
        node.display_name = display_name;
        node.tool_tip = tool_tip;
    };
    function("IPConfigAssignFreeTemporaryIP", "IPConfigAssignFreeTemporaryIPRegister",
             "IP Config Assign Free Temporary IP",
             "Test the local IP range to assign a free temporary IPAddress for the current interface.");
    function("IPConfigAssignFreePersistentIP", "IPConfigAssignFreePersistentIPRegister",
             "IP Config Assign Free Persistent IP",
             "Test the local IP range to assign a free IPAddress for the current interface.");
    function("IPConfigDHCPEnable", "IPConfigDHCPEnableRegister", "IP Config DHCP Enable",
             "Gives the device a reachable temporary IP address and then enables DHCP for the device.");
    auto& category = builder.add_category(
        "GevIPAutoConfig", {"IPConfigAssignFreeTemporaryIP", "IPConfigAssignFreePersistentIP", "IPConfigDHCPEnable"});
    category.display_name = "GEV IP Auto Config";
    category.tool_tip = "GEV IP Automatic Configuration Controls";
}

} // namespace gevdrv::gentl
