#include "service_memory.h"

#include <gds_gentl_producer/file_dialog.h>
#include <gds_gentl_producer/producer_system_base.h>
#include <gds_helper/process.h>

#include <fmt/format.h>
#include <spdlog/logger.h>

#include <algorithm>
#include <array>

namespace gds_producer {

using namespace GenTL;
using namespace GenTL::Producer;
namespace catalogue = ipc_rpc::catalogue;

namespace {

constexpr std::array interface_list_event_data{std::byte{0x40}};

using gds_helper::log::main_logger;

InterfaceInfo to_interface_info(const ipc_rpc::interface_desc& desc) {
    InterfaceInfo info{desc.id, desc.display_name, desc.tl_type, {}, {}, desc.net_info.mac_address & 0xFFFFFFFFFFFF};
    // Counts come from another process.
    const auto limit = [](uint32_t count) { return std::min(count, ipc_rpc::interface_net_info::max_entries); };
    for (uint32_t i = 0; i < limit(desc.net_info.subnet_count); ++i) {
        info.subnets.push_back({desc.net_info.subnets[i].ip, desc.net_info.subnets[i].netmask});
    }
    for (uint32_t i = 0; i < limit(desc.net_info.gateway_count); ++i) {
        info.gateways.push_back(desc.net_info.gateways[i]);
    }
    return info;
}

} // namespace

producer_system_base::producer_system_base(const TransportLayerInfo& info, const producer_environment& shared)
    : SystemImpl(info), env(shared) {}

producer_system_base::~producer_system_base() {
    Close(); // open interfaces use the connection to say good-bye
    interface_list_changed.reset();
}

Error producer_system_base::connect_to_service() {
    const std::string client_name =
        fmt::format("{}: [pid={},@{}]", env.product.producer_name, gds_helper::process_id(), fmt::ptr(this));
    const std::string pipe_name = gds_shared::service_pipe_name(env.product);
    ipc_rpc::object_function_table_root table;
    fill_function_table_(table);
    const auto connected = connection.connect(client_name, {pipe_name, std::string{env.product.service_name}},
                                              std::move(table), [this](uint64_t number) { registry.notify(number); });
    if (!connected || registry.start_pool()) {
        return {GC_ERR_ACCESS_DENIED, "Failed to connect to service via service-pipe '{}'. CTI version '{}'.",
                pipe_name, env.product.version_text};
    }
    const auto global = ipc_rpc::client_object_handle::global(*connected);
    auto created = global.invoke<catalogue::create_service_instance>();
    if (!created) {
        if (created.error() == ipc_rpc::make_error_code(ipc_rpc::status::bad_return_value)) {
            main_logger().error("Failed to deserialize create function result.");
            return {GC_ERR_NO_DATA, "Failed to deserialize create function result."};
        }
        main_logger().error("Failed to execute create function ec: '{}'", created.error().message());
        return to_gentl_error(created.error(), "create_service_instance");
    }
    service = std::move(*created);

    // Without the notification the system works all the same.
    if (const auto number = service.invoke<catalogue::get_interface_list_notification_id>()) {
        interface_list_changed = registry.register_for_pool(
            *number, [this] { fire_module_event(interface_list_event, interface_list_event_data); });
    }
    return success();
}

std::expected<std::vector<InterfaceInfo>, Error> producer_system_base::query_interfaces_(uint64_t) {
    const auto listed = service.invoke<catalogue::enum_interfaces>();
    if (!listed) {
        main_logger().error("Failed to execute create function ec: '{}'", listed.error().message());
        return std::unexpected(to_gentl_error(listed.error(), "enum_interfaces"));
    }
    std::vector<InterfaceInfo> infos;
    infos.reserve(listed->size());
    for (const auto& desc : *listed) infos.push_back(to_interface_info(desc));
    return infos;
}

std::expected<std::shared_ptr<IInterface>, Error> producer_system_base::create_interface_(const InterfaceInfo& info) {
    auto handle = service.invoke<catalogue::open_interface>(info.id);
    if (!handle) {
        main_logger().error("Failed call to open_interface ec: '{}'", handle.error().message());
        return std::unexpected(to_gentl_error(handle.error(), "open_interface"));
    }
    return make_interface_(info, std::move(*handle));
}

Error producer_system_base::Read(uint64_t address, void* buffer, size_t* size) {
    return read_through_service([&] { return SystemImpl::Read(address, buffer, size); }, service, address, buffer,
                                size);
}

Error producer_system_base::Write(uint64_t address, const void* buffer, size_t* size) {
    return write_through_service([&] { return SystemImpl::Write(address, buffer, size); }, service, address, buffer,
                                 size);
}

void producer_system_base::build_register_map(Util::GenApiInterfaceBuilder& builder) {
    SystemImpl::build_register_map(builder);
    add_genicam_debug(builder);
}

std::string producer_system_base::replacement_document_() {
    auto text = service.invoke<catalogue::genicam_document>();
    if (!text) {
        main_logger().error("Failed to execute get_genicam_string function ec: '{}'", text.error().message());
        return {};
    }
    return std::move(*text);
}

void producer_system_base::add_genicam_debug(Util::GenApiInterfaceBuilder& builder) {
    // The lower-case letter in the register's name has always been there.
    auto& store = builder.add_command(
        "StoreTLSystemGenICamDocument",
        [this] { return save_file(*env.settings, "TLSystem.xml", document_file_text()); },
        "StoreTLsystemGenICamDocument_Register");
    store.display_name = "Store TL System GenICam Document";
    store.tool_tip = "Stores the transport layer system GenICam document.";
    store.description = "Stores the transport layer system GenICam document. A file dialog asks for the path where "
                        "there is one.";

    auto& level = builder.add_rw_enumeration(
        "ProducerLogLevel",
        {{"trace", 0}, {"debug", 1}, {"info", 2}, {"warn", 3}, {"error", 4}, {"critical", 5}, {"off", 6}},
        [this]() -> std::expected<uint32_t, Error> { return static_cast<uint32_t>(env.logging->level()); },
        [this](uint32_t value) {
            if (value > static_cast<uint32_t>(gds_helper::log::level_off)) return Error{GC_ERR_INVALID_VALUE};
            env.logging->set_level(static_cast<int>(value));
            return success();
        });
    level.tool_tip = "Controls the log level of the GenTL producer shared object.";
    builder.add_category("Root", {"StoreTLSystemGenICamDocument", "ProducerLogLevel"});
}

namespace {

template <class F, class T>
std::error_code read_remote(const ipc_rpc::client_object_handle& service, const std::string& key, T& value) {
    auto answer = service.invoke<F>(key);
    if (!answer) return answer.error();
    value = std::move(*answer);
    return {};
}

} // namespace

std::error_code producer_system_base::read_double(const std::string& key, double& value) const {
    return read_remote<catalogue::property_store_read_double>(service, key, value);
}
std::error_code producer_system_base::read_int64(const std::string& key, int64_t& value) const {
    return read_remote<catalogue::property_store_read_int64>(service, key, value);
}
std::error_code producer_system_base::read_string(const std::string& key, std::string& value) const {
    return read_remote<catalogue::property_store_read_string>(service, key, value);
}
bool producer_system_base::has_entry(const std::string& key) const {
    return service.invoke<catalogue::property_store_has_entry>(key).value_or(false);
}

} // namespace gds_producer
