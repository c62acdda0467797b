#include "service_memory.h"

#include <gds_gentl_producer/producer_interface_base.h>

#include <spdlog/logger.h>

#include <array>

namespace gds_producer {

using namespace GenTL;
using namespace GenTL::Producer;
namespace catalogue = ipc_rpc::catalogue;

namespace {

constexpr std::array device_list_event_data{std::byte{0x30}};

using gds_helper::log::main_logger;

DEVICE_ACCESS_STATUS access_status_of(const ipc_rpc::device_desc& desc) {
    switch (static_cast<ipc_rpc::reachable_status>(desc.reachable_status)) {
    case ipc_rpc::reachable_status::discovered:
        return DEVICE_ACCESS_STATUS_UNKNOWN;
    case ipc_rpc::reachable_status::unreachable:
        return DEVICE_ACCESS_STATUS_NOACCESS;
    default:
        break;
    }
    if (desc.control_state < ipc_rpc::control_state_held) return DEVICE_ACCESS_STATUS_READWRITE;
    return desc.control_state == ipc_rpc::control_state_held ? DEVICE_ACCESS_STATUS_BUSY : DEVICE_ACCESS_STATUS_UNKNOWN;
}

DeviceInfo to_device_info(const ipc_rpc::device_desc& desc) {
    DeviceInfo info;
    info.id = desc.id;
    info.model = desc.model;
    info.vendor = desc.vendor;
    info.tl_type = desc.tl_type;
    info.display_name = desc.display_name;
    info.serial_number = desc.serial_number;
    info.version = desc.version;
    info.user_defined_name = desc.user_defined_name;
    info.access_status = access_status_of(desc);
    info.ip_address = desc.net_info.ip;
    info.subnet_mask = desc.net_info.netmask;
    info.gateway = desc.net_info.gateway;
    info.mac_address = desc.net_info.mac_address & 0xFFFFFFFFFFFF;
    return info;
}

} // namespace

producer_interface_base::producer_interface_base(producer_system_base& parent, const InterfaceInfo& info,
                                                 ipc_rpc::client_object_handle interface_handle)
    : InterfaceImpl(parent, info), system(parent), handle(std::move(interface_handle)) {}

producer_interface_base::~producer_interface_base() {
    close_children();
    device_list_changed.reset();
    messages_pending.reset();
}

Error producer_interface_base::init() {
    const auto numbers = handle.invoke<catalogue::get_interface_service_info>();
    if (!numbers) return to_gentl_error(numbers.error(), "get_interface_service_info");
    device_list_changed = system.notifications().register_for_pool(
        numbers->device_list_notification_id, [this] { fire_module_event(device_list_event, device_list_event_data); });
    messages_pending = system.notifications().register_for_pool_unique_queued(numbers->event_notification_id,
                                                                              [this] { fetch_pending_messages(); });
    fetch_pending_messages(); // what came before was told to nobody
    return success();
}

void producer_interface_base::fetch_pending_messages() {
    const auto messages = handle.invoke<catalogue::get_event_messages>();
    if (!messages) {
        main_logger().error("Failed to fetch device event messages. Error = {}.", messages.error().message());
        return;
    }
    for (const auto& message : *messages) fire_module_event(message.event_id, message.payload);
}

std::expected<std::vector<DeviceInfo>, Error> producer_interface_base::query_devices_(uint64_t) {
    const auto listed = handle.invoke<catalogue::enum_devices>();
    if (!listed) {
        main_logger().error("Failed to execute create function ec: '{}'", listed.error().message());
        return std::unexpected(to_gentl_error(listed.error(), "enum_devices"));
    }
    std::vector<DeviceInfo> infos;
    infos.reserve(listed->size());
    for (const auto& desc : *listed) infos.push_back(to_device_info(desc));
    return infos;
}

std::expected<std::shared_ptr<IDevice>, Error> producer_interface_base::create_device_(const DeviceInfo& info,
                                                                                       DEVICE_ACCESS_FLAGS flags) {
    ipc_rpc::open_access access{};
    switch (flags) {
    case DEVICE_ACCESS_READONLY:
        access = ipc_rpc::open_access::read_only;
        break;
    case DEVICE_ACCESS_CONTROL:
        access = ipc_rpc::open_access::control;
        break;
    case DEVICE_ACCESS_EXCLUSIVE:
        access = ipc_rpc::open_access::exclusive;
        break;
    default:
        return std::unexpected(Error{GC_ERR_INVALID_PARAMETER, "iOpenFlags has invalid value for this operation"});
    }
    auto opened = handle.invoke<catalogue::open_device>(info.id, access);
    if (!opened) {
        if (opened.error() == std::errc::host_unreachable) {
            return std::unexpected(Error{GC_ERR_NOT_AVAILABLE, "Failed to open unreachable device."});
        }
        return std::unexpected(to_gentl_error(opened.error(), "open_device"));
    }
    return make_device_(info, flags, std::move(*opened));
}

Error producer_interface_base::Read(uint64_t address, void* buffer, size_t* size) {
    return read_through_service([&] { return InterfaceImpl::Read(address, buffer, size); }, handle, address, buffer,
                                size);
}

Error producer_interface_base::Write(uint64_t address, const void* buffer, size_t* size) {
    return write_through_service([&] { return InterfaceImpl::Write(address, buffer, size); }, handle, address, buffer,
                                 size);
}

void producer_interface_base::build_register_map(Util::GenApiInterfaceBuilder& builder) {
    InterfaceImpl::build_register_map(builder);
    build_genicam_document_firmwareupdate(builder);
}

std::string producer_interface_base::replacement_document_() {
    auto text = handle.invoke<catalogue::genicam_document>();
    if (!text) {
        main_logger().error("Failed to fetch genicam document from interface object. ec: '{}'", text.error().message());
        return {};
    }
    return std::move(*text);
}

} // namespace gds_producer
