// What all clients of the service share: discovery, configuration, and who is to be told of changes.
#pragma once

#include "address_turns.h"
#include "client_session.h"
#include "firmware_updates.h"
#include "message_box.h"

#include "port_memory.h"

#include "../gvcp/device_document.h"
#include "../gvcp/discovery.h"
#include "../image_features/camera_settings.h"

#include <gds_helper/property_store.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

namespace service {

// Who is told that the interface its camera was found on is no more.
class interface_user {
public:
    virtual void interface_gone() = 0;

protected:
    ~interface_user() = default;
};

// Of a message on an interface: an update's state has changed. The payload is its text, the first parameter the MAC.
inline constexpr uint64_t firmware_state_event = 0x3002;

// Thread-safe. Numbers are raised with the mutex held, which never waits; the end of an interface is told without it.
// Lock order: mutex, then a message box's or a session's.
class service_core final {
public:
    struct options {
        gvcp_master::discovery::options discovery;
        std::chrono::milliseconds heartbeat_timeout{0}; // 0 leaves the cameras' own
        gvcp_master::document_policy documents;
        bool image_features = true;    // offered in the cameras' documents
        std::string port_folder;       // where the ports of sessions are noted; empty: nowhere
        std::optional<uint32_t> group; // whose members may use shared memory
        std::shared_ptr<gds_helper::property_store_ro> settings;
    };

    explicit service_core(options chosen);
    ~service_core() { stop(); }
    service_core(const service_core&) = delete;
    service_core& operator=(const service_core&) = delete;

    [[nodiscard]] gvcp_master::discovery& discovery() noexcept { return *finder; }
    [[nodiscard]] const options& settings() const noexcept { return chosen; }

    // Kept for as long as the number lives, and at most until the next one comes.
    void watch_interfaces(const std::shared_ptr<client_session::number>& number);
    void watch_devices(const std::string& interface_name, const std::shared_ptr<client_session::number>& number);

    [[nodiscard]] std::size_t watcher_count();

    // Gets what the service says of the interface's cameras, for as long as it lives.
    void watch_messages(const std::string& interface_name, const std::shared_ptr<message_box>& box);
    [[nodiscard]] firmware_updates& firmware() noexcept { return *updates; }

    // Once; nothing happens when the interface is gone already.
    void watch_end_of(const std::string& interface_name, std::weak_ptr<interface_user> user);

    // The devices that clients of this service have control of, by MAC. A session holds one twice while the late end of
    // its former opening waits for the camera.
    enum class holder { nobody, self, other };
    void add_holder(uint64_t mac, const client_session* session);
    void remove_holder(uint64_t mac, const client_session* session);
    [[nodiscard]] holder holder_of(uint64_t mac, const client_session* session);
    // Whether no client has control: who has closed it or ended lets go of it on a thread of the service's own, soon.
    // Waits for that, until `time` is over or the service is stopped.
    [[nodiscard]] bool await_release(uint64_t mac, std::chrono::milliseconds time);

    [[nodiscard]] user_budget budget_of(std::optional<uint32_t> user);
    // One copy of equal documents, for as long as anybody has it.
    [[nodiscard]] std::shared_ptr<const std::string> shared_document(std::string text);

    [[nodiscard]] address_turns& addresses() noexcept { return given_addresses; }

    [[nodiscard]] port_memory& ports() noexcept { return noted_ports; }
    [[nodiscard]] image_features::settings_registry& camera_settings() noexcept { return settings_of_cameras; }
    // Ends what waits for cameras, now and later.
    void stop() noexcept { ending.request_stop(); }
    [[nodiscard]] std::stop_token stop_token() const noexcept { return ending.get_token(); }

private:
    using watcher = std::weak_ptr<client_session::number>;
    static void raise(std::vector<watcher>& watchers);
    static void drop_expired(std::vector<watcher>& watchers);

    const options chosen;
    const user_budget budget_of_all{std::make_shared<ipc_rpc::byte_budget>(ipc_rpc::limits::most_open_devices_of_all),
                                    std::make_shared<ipc_rpc::byte_budget>(ipc_rpc::limits::most_document_bytes_of_all),
                                    std::make_shared<ipc_rpc::byte_budget>(ipc_rpc::limits::most_answer_bytes_of_all)};
    address_turns given_addresses;
    std::mutex mutex; // guards what follows
    std::vector<watcher> interface_watchers;
    std::map<std::string, std::vector<watcher>> device_watchers;
    std::map<std::string, std::vector<std::weak_ptr<message_box>>> message_boxes;
    std::map<std::string, std::vector<std::weak_ptr<interface_user>>> interface_users;
    std::map<uint64_t, std::multiset<const client_session*>> holders;
    std::map<std::optional<uint32_t>, user_budget> budgets; // kept, whoever goes
    std::condition_variable_any released;
    std::mutex documents_mutex; // guards what follows
    std::vector<std::weak_ptr<const std::string>> documents;
    port_memory noted_ports;
    image_features::settings_registry settings_of_cameras;
    std::stop_source ending;
    std::unique_ptr<gvcp_master::discovery> finder; // its thread uses the rest
    std::unique_ptr<firmware_updates> updates;      // last: its threads use the search
};

} // namespace service
