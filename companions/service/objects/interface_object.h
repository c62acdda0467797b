// One network interface, opened by one client.
#pragma once

#include "service_core.h"

#include <ipc_rpc/catalogue.h>

#include <expected>
#include <functional>
#include <stop_token>
#include <system_error>

namespace service {

class device_object;

class interface_object final {
public:
    interface_object(std::shared_ptr<service_core> shared, std::shared_ptr<client_session> client,
                     std::string interface_name);

    // The client has gone: what still runs for it ends. Does not wait.
    void abandon() noexcept { ending.request_stop(); }

    // False when the client has no notification numbers left for it.
    [[nodiscard]] bool is_complete() const noexcept { return devices_changed && messages; }

    [[nodiscard]] std::expected<ipc_rpc::interface_service_info, std::error_code> service_info();
    [[nodiscard]] std::expected<std::vector<ipc_rpc::device_desc>, std::error_code> enum_devices() const;
    [[nodiscard]] std::expected<std::shared_ptr<device_object>, std::error_code>
    open_device(const std::string& id, ipc_rpc::open_access access) const;
    [[nodiscard]] std::expected<uint32_t, std::error_code> device_reachable(const std::string& id) const;
    [[nodiscard]] std::expected<void, std::error_code> force_ip(uint64_t mac, uint32_t address, uint32_t mask,
                                                                uint32_t gateway) const;
    [[nodiscard]] std::vector<ipc_rpc::event_message> take_messages();
    [[nodiscard]] std::expected<void, std::error_code> upload_firmware(const std::string& id,
                                                                       std::span<const std::byte> package) const;
    [[nodiscard]] std::expected<std::string, std::error_code> firmware_state(const std::string& id) const;
    // By the function's name.
    [[nodiscard]] std::expected<void, std::error_code> execute(const std::string& id,
                                                               const std::string& function) const;
    [[nodiscard]] std::expected<void, std::error_code> send_action(uint32_t device_key, uint32_t group_key,
                                                                   uint32_t group_mask, bool scheduled, uint64_t time,
                                                                   uint32_t flags, bool all_interfaces) const;

private:
    [[nodiscard]] std::optional<gvcp_master::discovery::found_interface> current() const;
    [[nodiscard]] std::optional<gvcp_master::discovery::found_device> find_device(const std::string& id) const;

    std::shared_ptr<service_core> core;
    std::shared_ptr<client_session> session;
    const std::string name;
    std::shared_ptr<client_session::number> devices_changed;
    std::shared_ptr<message_box> messages;
    std::stop_source ending;                           // the client's end
    std::stop_callback<std::function<void()>> on_stop; // or the service's
};

} // namespace service
