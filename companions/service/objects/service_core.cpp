#include "service_core.h"

namespace service {

service_core::service_core(options given) : chosen(std::move(given)) {
    gvcp_master::discovery::notifications told;
    told.interfaces_changed = [this] {
        const std::lock_guard guard{mutex};
        raise(interface_watchers);
    };
    told.devices_changed = [this](const std::string& name) {
        const std::lock_guard guard{mutex};
        if (const auto found = device_watchers.find(name); found != device_watchers.end()) raise(found->second);
    };
    finder = std::make_unique<gvcp_master::discovery>(chosen.discovery, std::move(told));
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

size_t service_core::watcher_count() {
    const std::lock_guard guard{mutex};
    size_t count = interface_watchers.size();
    for (const auto& [name, watchers] : device_watchers) count += watchers.size();
    return count;
}

void service_core::add_holder(uint64_t mac) {
    const std::lock_guard guard{mutex};
    ++holders[mac];
}

void service_core::remove_holder(uint64_t mac) {
    const std::lock_guard guard{mutex};
    if (const auto found = holders.find(mac); found != holders.end() && --found->second == 0) holders.erase(found);
}

bool service_core::is_held(uint64_t mac) {
    const std::lock_guard guard{mutex};
    return holders.contains(mac);
}

} // namespace service
