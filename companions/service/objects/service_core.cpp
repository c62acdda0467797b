#include "service_core.h"

#include <gds_helper/line_budget.h>
#include <gds_helper/log.h>

#include <spdlog/logger.h>

namespace service {

service_core::service_core(options given) : chosen(std::move(given)), noted_ports(chosen.port_folder) {
    gvcp_master::discovery::notifications told;
    told.interfaces_changed = [this] {
        const std::lock_guard guard{mutex};
        raise(interface_watchers);
    };
    told.devices_changed = [this](const std::string& name) {
        const std::lock_guard guard{mutex};
        if (const auto found = device_watchers.find(name); found != device_watchers.end()) raise(found->second);
    };
    told.interface_gone = [this](const std::string& name) {
        std::vector<std::weak_ptr<interface_user>> users;
        {
            const std::lock_guard guard{mutex};
            if (const auto found = interface_users.extract(name)) users = std::move(found.mapped());
        }
        for (const auto& entry : users)
            if (const auto user = entry.lock()) user->interface_gone();
    };
    told.log = [lines = std::make_shared<gds_helper::log::line_budget>(
                    "the search for cameras", ipc_rpc::limits::most_lines_of_network)](const std::string& text) {
        const gds_helper::log::counted_lines counted{lines};
        gds_helper::log::main_logger().info("{}", text);
    };
    finder = std::make_unique<gvcp_master::discovery>(chosen.discovery, std::move(told));
    updates =
        std::make_unique<firmware_updates>(*finder, given_addresses, ending.get_token(),
                                           [this](const std::string& name, uint64_t mac, const std::string& state) {
                                               ipc_rpc::event_message message;
                                               message.event_id = firmware_state_event;
                                               message.parameter_1 = mac;
                                               const auto bytes = std::as_bytes(std::span{state});
                                               message.payload.assign(bytes.begin(), bytes.end());
                                               const std::lock_guard guard{mutex};
                                               const auto found = message_boxes.find(name);
                                               if (found == message_boxes.end()) return;
                                               for (const auto& entry : found->second)
                                                   if (const auto box = entry.lock()) box->push(message);
                                           });
}

void service_core::raise(std::vector<watcher>& watchers) {
    std::erase_if(watchers, [](const watcher& entry) {
        const auto number = entry.lock();
        if (number) number->raise();
        return !number;
    });
}

void service_core::drop_expired(std::vector<watcher>& watchers) {
    std::erase_if(watchers, [](const watcher& entry) { return entry.expired(); });
}

void service_core::watch_interfaces(const std::shared_ptr<client_session::number>& number) {
    const std::lock_guard guard{mutex};
    drop_expired(interface_watchers);
    interface_watchers.push_back(number);
}

void service_core::watch_devices(const std::string& interface_name,
                                 const std::shared_ptr<client_session::number>& number) {
    const std::lock_guard guard{mutex};
    for (auto entry = device_watchers.begin(); entry != device_watchers.end();) {
        drop_expired(entry->second);
        entry = entry->second.empty() ? device_watchers.erase(entry) : std::next(entry);
    }
    device_watchers[interface_name].push_back(number);
}

void service_core::watch_messages(const std::string& interface_name, const std::shared_ptr<message_box>& box) {
    const std::lock_guard guard{mutex};
    for (auto entry = message_boxes.begin(); entry != message_boxes.end();) {
        std::erase_if(entry->second, [](const auto& each) { return each.expired(); });
        entry = entry->second.empty() ? message_boxes.erase(entry) : std::next(entry);
    }
    message_boxes[interface_name].push_back(box);
}

std::size_t service_core::watcher_count() {
    const std::lock_guard guard{mutex};
    std::size_t count = interface_watchers.size();
    for (const auto& [name, watchers] : device_watchers) count += watchers.size();
    return count;
}

void service_core::watch_end_of(const std::string& interface_name, std::weak_ptr<interface_user> user) {
    const std::lock_guard guard{mutex};
    auto& users = interface_users[interface_name];
    std::erase_if(users, [](const auto& entry) { return entry.expired(); });
    users.push_back(std::move(user));
}

void service_core::add_holder(uint64_t mac, const client_session* session) {
    const std::lock_guard guard{mutex};
    holders[mac].insert(session);
}

void service_core::remove_holder(uint64_t mac, const client_session* session) {
    {
        const std::lock_guard guard{mutex};
        const auto found = holders.find(mac);
        if (found == holders.end()) return;
        const auto once = found->second.find(session);
        if (once == found->second.end()) return;
        found->second.erase(once);
        if (found->second.empty()) holders.erase(found);
    }
    released.notify_all();
    finder->control_given_back(mac);
}

service_core::holder service_core::holder_of(uint64_t mac, const client_session* session) {
    const std::lock_guard guard{mutex};
    const auto found = holders.find(mac);
    if (found == holders.end()) return holder::nobody;
    return found->second.contains(session) ? holder::self : holder::other;
}

bool service_core::await_release(uint64_t mac, std::chrono::milliseconds time) {
    std::unique_lock lock{mutex};
    return released.wait_for(lock, ending.get_token(), time, [&] { return !holders.contains(mac); });
}

user_budget service_core::budget_of(std::optional<uint32_t> user) {
    const std::lock_guard guard{mutex};
    if (const auto found = budgets.find(user); found != budgets.end()) return found->second;
    using ipc_rpc::byte_budget;
    namespace limits = ipc_rpc::limits;
    const user_budget made{
        std::make_shared<byte_budget>(limits::most_open_devices_of_user, budget_of_all.open_devices),
        std::make_shared<byte_budget>(limits::most_document_bytes_of_user, budget_of_all.document_bytes),
        std::make_shared<byte_budget>(limits::most_answer_bytes_of_user, budget_of_all.answer_bytes)};
    return budgets.emplace(user, made).first->second;
}

std::shared_ptr<const std::string> service_core::shared_document(std::string text) {
    const std::lock_guard guard{documents_mutex};
    std::erase_if(documents, [](const auto& each) { return each.expired(); });
    for (const auto& each : documents)
        if (auto same = each.lock(); same && *same == text) return same;
    auto made = std::make_shared<const std::string>(std::move(text));
    documents.push_back(made);
    return made;
}

} // namespace service
