// What all clients of the service share: discovery, configuration, and who is to be told of changes.
#pragma once

#include "client_session.h"

#include "../gvcp/discovery.h"

#include <gds_helper/property_store.h>

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace service {

class service_core final {
public:
    struct options {
        gvcp_master::discovery::options discovery;
        std::chrono::milliseconds heartbeat_timeout{0}; // 0 leaves the cameras' own
        std::optional<uint32_t> group;                  // whose members may use shared memory
        std::shared_ptr<gds_helper::property_store_ro> settings;
    };

    explicit service_core(options chosen);

    [[nodiscard]] gvcp_master::discovery& discovery() noexcept { return *finder; }
    [[nodiscard]] const options& settings() const noexcept { return chosen; }

    // Kept for as long as the number lives, and at most until the next one comes.
    void watch_interfaces(const std::shared_ptr<client_session::number>& number);
    void watch_devices(const std::string& interface_name, const std::shared_ptr<client_session::number>& number);

    [[nodiscard]] size_t watcher_count();

    // Devices that some client of this service holds, by MAC.
    void add_holder(uint64_t mac);
    void remove_holder(uint64_t mac);
    [[nodiscard]] bool is_held(uint64_t mac);

private:
    using watcher = std::weak_ptr<client_session::number>;
    static void raise(std::vector<watcher>& watchers);
    static void drop_expired(std::vector<watcher>& watchers);

    const options chosen;
    std::mutex mutex; // guards what follows
    std::vector<watcher> interface_watchers;
    std::map<std::string, std::vector<watcher>> device_watchers;
    std::map<uint64_t, int> holders;
    std::unique_ptr<gvcp_master::discovery> finder; // last: its thread uses the rest
};

} // namespace service
