#include "interface_object.h"

#include "address_assignment.h"
#include "device_object.h"

#include "../gvcp/broadcast_commands.h"

#include <gds_helper/log.h>

#include <fmt/format.h>
#include <spdlog/logger.h>

#include <algorithm>

namespace service {

namespace {

// Readable where it can be, unique because the MAC is. A camera without a serial number is named by its MAC alone.
std::string device_id_of(const gvcp_master::device_record& record) {
    const auto& tail = record.serial.empty() ? fmt::format("{:012X}", record.mac) : record.serial;
    return fmt::format("{}-{}-{}", record.vendor, record.model, tail);
}

std::vector<std::string> device_ids(const std::vector<gvcp_master::discovery::found_device>& devices) {
    std::vector<std::string> ids;
    ids.reserve(devices.size());
    for (const auto& record : devices) ids.push_back(device_id_of(record));
    // Makers' serial numbers are not always unique, and a simulated camera's MAC may not be either.
    std::vector<std::string> unique = ids;
    for (std::size_t i = 0; i < ids.size(); ++i) {
        if (std::ranges::count(ids, ids[i]) > 1) {
            unique[i] = fmt::format("{}@{}", ids[i], gige::to_string(devices[i].address));
        }
    }
    return unique;
}

// 3 when another controller holds the device, else 0. What a client holds itself is not another's, and the camera
// cannot tell the clients of this service apart.
uint32_t control_state_of(service_core& core, const client_session& session,
                          const gvcp_master::discovery::found_device& device) {
    switch (core.holder_of(device.mac, &session)) {
    case service_core::holder::self:
        return 0;
    case service_core::holder::other:
        return ipc_rpc::control_state_held;
    case service_core::holder::nobody:
        break;
    }
    return device.controlled ? ipc_rpc::control_state_held : 0;
}

// One that is near and has not answered anything but the search yet may still be behind a filter, or at an address
// that this host's tables know as another's.
ipc_rpc::reachable_status reachable_of(const gvcp_master::discovery::found_device& record) {
    if (!record.is_reachable()) return ipc_rpc::reachable_status::unreachable;
    return record.answers ? ipc_rpc::reachable_status::reachable : ipc_rpc::reachable_status::discovered;
}

std::unexpected<std::error_code> no_such_device() {
    return std::unexpected(std::make_error_code(std::errc::no_such_device));
}

} // namespace

interface_object::interface_object(std::shared_ptr<service_core> shared, std::shared_ptr<client_session> client,
                                   std::string interface_name)
    : core(std::move(shared)),
      session(std::move(client)),
      name(std::move(interface_name)),
      devices_changed(session->allocate()),
      on_stop(core->stop_token(), [this] { ending.request_stop(); }) {
    if (auto number = session->allocate()) messages = std::make_shared<message_box>(std::move(number));
    if (!is_complete()) return;
    core->watch_devices(name, devices_changed);
    core->watch_messages(name, messages);
}

std::expected<ipc_rpc::interface_service_info, std::error_code> interface_object::service_info() {
    return ipc_rpc::interface_service_info{devices_changed->get(), messages->notification()};
}

std::optional<gvcp_master::discovery::found_interface> interface_object::current() const {
    auto list = core->discovery().list();
    const auto found = std::ranges::find_if(list, [&](const auto& entry) { return entry.network.name == name; });
    if (found == list.end()) return std::nullopt;
    return std::move(*found);
}

std::optional<gvcp_master::discovery::found_device> interface_object::find_device(const std::string& id) const {
    const auto interface = current();
    if (!interface) return std::nullopt;
    const auto ids = device_ids(interface->devices);
    const auto found = std::ranges::find(ids, id);
    if (found == ids.end()) return std::nullopt;
    return interface->devices[static_cast<std::size_t>(found - ids.begin())];
}

std::expected<std::vector<ipc_rpc::device_desc>, std::error_code> interface_object::enum_devices() const {
    const auto interface = current();
    std::vector<ipc_rpc::device_desc> list;
    if (!interface) return list; // it is gone, and its cameras with it
    const auto ids = device_ids(interface->devices);
    for (std::size_t i = 0; i < ids.size(); ++i) {
        const auto& record = interface->devices[i];
        ipc_rpc::device_desc desc;
        desc.id = ids[i];
        desc.vendor = record.vendor;
        desc.model = record.model;
        desc.tl_type = "GEV";
        const std::string& called = record.user_name.empty() ? record.serial : record.user_name;
        desc.display_name = called.empty() ? fmt::format("{} {}", record.vendor, record.model)
                                           : fmt::format("{} {} ({})", record.vendor, record.model, called);
        desc.version = record.device_version;
        desc.serial_number = record.serial;
        desc.user_defined_name = record.user_name;
        desc.reachable_status = static_cast<decltype(desc.reachable_status)>(reachable_of(record));
        desc.control_state = control_state_of(*core, *session, record);
        desc.net_info = {record.address, record.mask, record.gateway, 0, record.mac};
        list.push_back(std::move(desc));
    }
    return list;
}

std::expected<std::shared_ptr<device_object>, std::error_code>
interface_object::open_device(const std::string& id, ipc_rpc::open_access access) const {
    const auto record = find_device(id);
    if (!record) return no_such_device();
    if (!record->is_reachable()) return std::unexpected(std::make_error_code(std::errc::host_unreachable));
    return device_object::open(core, session, *record, name, access, ending.get_token());
}

std::expected<uint32_t, std::error_code> interface_object::device_reachable(const std::string& id) const {
    const auto record = find_device(id);
    if (!record) return no_such_device();
    return static_cast<uint32_t>(reachable_of(*record));
}

std::expected<void, std::error_code> interface_object::force_ip(uint64_t mac, uint32_t address, uint32_t mask,
                                                                uint32_t gateway) const {
    if (const auto error = force_address(*core, name, mac, address, mask, gateway, ending.get_token()))
        return std::unexpected(error);
    return {};
}

std::vector<ipc_rpc::event_message> interface_object::take_messages() {
    auto taken = messages->take();
    if (taken.dropped != 0)
        gds_helper::log::main_logger().warn("{} messages of {} were dropped before the client fetched the rest.",
                                            taken.dropped, name);
    return std::move(taken.messages);
}

std::expected<void, std::error_code> interface_object::upload_firmware(const std::string& id,
                                                                       std::span<const std::byte> package) const {
    const auto record = find_device(id);
    if (!record) {
        core->firmware().forget(name, id);
        return no_such_device();
    }
    if (const auto error = core->firmware().start(name, id, *record, package)) return std::unexpected(error);
    return {};
}

std::expected<std::string, std::error_code> interface_object::firmware_state(const std::string& id) const {
    if (auto state = core->firmware().state(name, id)) return std::move(*state);
    if (!find_device(id)) return no_such_device();
    return std::string{};
}

std::expected<void, std::error_code> interface_object::execute(const std::string& id,
                                                               const std::string& function) const {
    const auto record = find_device(id);
    if (!record) return no_such_device();
    if (const auto error = run_address_function(*core, name, *record, function, ending.get_token()))
        return std::unexpected(error);
    return {};
}

std::expected<void, std::error_code> interface_object::send_action(uint32_t device_key, uint32_t group_key,
                                                                   uint32_t group_mask, bool scheduled, uint64_t time,
                                                                   uint32_t flags, bool all_interfaces) const {
    const gvcp_master::action_command action{
        device_key, group_key, group_mask, scheduled ? std::optional{time} : std::nullopt, static_cast<uint8_t>(flags)};
    // An interface that cannot send must not keep the trigger from the cameras of the others.
    bool done = false;
    std::error_code failed = std::make_error_code(std::errc::no_such_device);
    for (const auto& entry : core->discovery().list()) {
        if (!all_interfaces && entry.network.name != name) continue;
        if (const auto error = gvcp_master::send_action(entry.network, action)) {
            failed = error;
            gds_helper::log::main_logger().warn("No action by {}: {}", entry.network.name, failed.message());
        } else {
            done = true;
        }
    }
    if (!done) return std::unexpected(failed);
    return {};
}

} // namespace service
