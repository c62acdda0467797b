#include "address_turns.h"

#include <algorithm>

namespace service {

address_turns::turn::turn(address_turns& all, uint64_t mac, const std::stop_token& stop) : turns{all}, camera{mac} {
    std::unique_lock lock{turns.mutex};
    had = turns.changed.wait(lock, stop, [&] { return !turns.under_way.contains(mac); });
    if (stop.stop_requested()) had = false;
    if (had) turns.under_way.emplace(mac, 0);
}

address_turns::turn::~turn() {
    if (!had) return;
    {
        const std::lock_guard guard{turns.mutex};
        turns.under_way.erase(camera);
    }
    turns.changed.notify_all();
}

bool address_turns::turn::take(uint32_t address) {
    const std::lock_guard guard{turns.mutex};
    const auto is_it = [&](const auto& each) { return each.first != camera && each.second == address; };
    if (std::ranges::any_of(turns.under_way, is_it)) return false;
    turns.under_way[camera] = address;
    return true;
}

std::vector<uint32_t> address_turns::turn::taken_by_others() const {
    const std::lock_guard guard{turns.mutex};
    std::vector<uint32_t> addresses;
    for (const auto& [mac, address] : turns.under_way)
        if (mac != camera && address != 0) addresses.push_back(address);
    return addresses;
}

address_turns::stay::stay(address_turns& all, uint64_t mac) : turns{all}, camera{mac} {
    const std::lock_guard guard{turns.mutex};
    if (turns.under_way.contains(mac)) return;
    turns.staying.insert(mac);
    had = true;
}

address_turns::stay::~stay() {
    if (!had) return;
    const std::lock_guard guard{turns.mutex};
    turns.staying.erase(turns.staying.find(camera));
}

bool address_turns::has_to_stay(uint64_t mac) {
    const std::lock_guard guard{mutex};
    return staying.contains(mac);
}

} // namespace service
