// The root object of one client.
#pragma once

#include "service_core.h"

#include <ipc_rpc/catalogue.h>

#include <expected>
#include <system_error>

namespace service {

class service_object final {
public:
    service_object(std::shared_ptr<service_core> shared, std::shared_ptr<client_session> client);

    [[nodiscard]] std::vector<ipc_rpc::interface_desc> enum_interfaces() const;
    [[nodiscard]] std::expected<std::shared_ptr<class interface_object>, std::error_code>
    open_interface(const std::string& id) const;
    [[nodiscard]] std::expected<uint64_t, std::error_code> interface_list_number();
    [[nodiscard]] const gds_helper::property_store_ro& settings() const noexcept { return *core->settings().settings; }

private:
    std::shared_ptr<service_core> core;
    std::shared_ptr<client_session> session;
    std::shared_ptr<client_session::number> list_changed;
};

} // namespace service
