#include <gentl_producer/HandleMap.h>
#include <gentl_producer/Library.h>

#include <spdlog/logger.h>

#include <algorithm>
#include <mutex>

namespace GenTL::Producer {

namespace {

HandleMap g_handle_map;

} // namespace

HandleMap& handle_map() noexcept { return g_handle_map; }

uint64_t HandleMap::add(std::string name, const std::shared_ptr<IHandleTarget>& target, HandleKind kind) {
    const uint64_t handle = handle_value(target.get());
    const std::unique_lock guard{lock};
    entries.push_back({handle, std::move(name), target, kind});
    return handle;
}

void HandleMap::remove(uint64_t handle) {
    const std::unique_lock guard{lock};
    const auto found = std::ranges::find(entries, handle, &Entry::handle);
    if (found != entries.end()) entries.erase(found);
}

HandleMap::Found HandleMap::lookup(uint64_t handle) const {
    const std::shared_lock guard{lock};
    const auto found = std::ranges::find(entries, handle, &Entry::handle);
    if (found == entries.end()) return {};
    return {found->target.lock(), found->kind};
}

int64_t HandleMap::dump_handle_map() const {
    const std::unique_lock guard{lock};
    if (entries.empty()) return 0;
    if (auto* logger = default_logger()) {
        logger->warn("{} handles left alive:", entries.size());
        for (const Entry& entry : entries) {
            if (const auto target = entry.target.lock()) {
                logger->warn("  {} @ {}", entry.name, fmt::ptr(target.get()));
            } else {
                logger->warn("  {} (dead)", entry.name);
            }
        }
    }
    return static_cast<int64_t>(entries.size());
}

} // namespace GenTL::Producer
