// The service's end of the protocol: accepts client processes, serves one function table to all of them.
#pragma once

#include <ipc_rpc/function_table.h>
#include <ipc_rpc/rpc_connection_client.h>

#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

namespace service {

class rpc_server final {
public:
    struct options {
        std::string pipe_name;
        std::optional<uint32_t> group; // whose members may connect besides root and this user
    };

    // The table is made anew for every client. std::errc::address_in_use when another living service has the name.
    [[nodiscard]] static std::expected<std::unique_ptr<rpc_server>, std::error_code>
    start(options chosen, std::function<ipc_rpc::object_function_table_root()> make_table);
    // Ends all connections; their objects are released here.
    ~rpc_server();
    rpc_server(const rpc_server&) = delete;
    rpc_server& operator=(const rpc_server&) = delete;

    // Raises numbers at the client behind a connection of this server, for as long as it lives.
    [[nodiscard]] static std::function<void(uint64_t)>
    notifier_of(const std::shared_ptr<ipc_rpc::rpc_connection_client>& connection);

private:
    class impl;
    explicit rpc_server(std::unique_ptr<impl> made);
    std::unique_ptr<impl> implementation;
};

} // namespace service
