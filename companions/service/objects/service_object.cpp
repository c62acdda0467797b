#include "service_object.h"

#include "interface_object.h"

#include <fmt/format.h>

#include <algorithm>

namespace service {

namespace {

ipc_rpc::interface_desc describe(const gige::network_interface& network) {
    ipc_rpc::interface_desc desc;
    desc.id = network.name;
    desc.tl_type = "GEV";
    desc.display_name = network.name;
    if (!network.subnets.empty()) {
        desc.display_name = fmt::format("{} ({})", network.name, gige::to_string(network.subnets.front().address));
    }
    constexpr std::size_t limit = ipc_rpc::interface_net_info::max_entries;
    desc.net_info.mac_address = network.mac;
    desc.net_info.subnet_count = static_cast<uint32_t>(std::min(network.subnets.size(), limit));
    for (uint32_t i = 0; i < desc.net_info.subnet_count; ++i) {
        desc.net_info.subnets[i] = {network.subnets[i].address, network.subnets[i].mask};
    }
    desc.net_info.gateway_count = static_cast<uint32_t>(std::min(network.gateways.size(), limit));
    for (uint32_t i = 0; i < desc.net_info.gateway_count; ++i) desc.net_info.gateways[i] = network.gateways[i];
    return desc;
}

} // namespace

service_object::service_object(std::shared_ptr<service_core> shared, std::shared_ptr<client_session> client)
    : core(std::move(shared)), session(std::move(client)), list_changed(session->allocate()) {
    if (list_changed) core->watch_interfaces(list_changed);
}

std::vector<ipc_rpc::interface_desc> service_object::enum_interfaces() const {
    std::vector<ipc_rpc::interface_desc> list;
    for (const auto& entry : core->discovery().list()) list.push_back(describe(entry.network));
    return list;
}

std::expected<std::shared_ptr<interface_object>, std::error_code>
service_object::open_interface(const std::string& id) const {
    const auto list = core->discovery().list();
    const bool known = std::ranges::any_of(list, [&](const auto& entry) { return entry.network.name == id; });
    if (!known) return std::unexpected(std::make_error_code(std::errc::no_such_device));
    auto opened = std::make_shared<interface_object>(core, session, id);
    if (!opened->is_complete()) return std::unexpected(make_error_code(ipc_rpc::status::resource_exhausted));
    return opened;
}

std::expected<uint64_t, std::error_code> service_object::interface_list_number() {
    if (!list_changed) return std::unexpected(make_error_code(ipc_rpc::status::resource_exhausted));
    return list_changed->get();
}

} // namespace service
