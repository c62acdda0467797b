// The library's connection to the service.
#pragma once

#include <gds_helper/process.h>
#include <ipc_rpc/client_object_handle.h>
#include <ipc_rpc/executor_thread_pool.h>
#include <ipc_rpc/rpc_connection_client.h>

#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <string>
#include <system_error>

namespace ipc_rpc::client {

struct service_id {
    std::string pipe_name;
    std::string display_name;
};

class client_private_instance;

// Passed to `on_notification` once, after the last number of the service, when the connection has ended by the service:
// because its process went, or gave no sign of life for about 5 seconds. Calls fail from then on.
inline constexpr std::uint64_t connection_lost = UINT64_MAX;

// Thread-bound. One connection at most; destruction ends it, fails every waiting call with
// status::connection_closed and joins its threads. A connection that the service ends is not renewed.
// In a child made by fork the connection is dead and destruction leaves the parent's alone.
class client_instance final {
public:
    client_instance();
    ~client_instance();
    client_instance(const client_instance&) = delete;
    client_instance& operator=(const client_instance&) = delete;

    // Blocks for at most one second: std::errc::timed_out when the service accepts but does not announce,
    // std::errc::no_such_file_or_directory when there is no service, permission_denied for one of a user that is
    // neither root, nor this one, nor the owner of /run/orv-gentl-gev, where that is the folder. `on_notification` runs
    // on threads of the connection, one at a time, and must not block. Without an executor the connection makes its own
    // of 4 threads. Connecting again ends the earlier connection first.
    [[nodiscard]] std::expected<std::shared_ptr<rpc_connection_client>, std::error_code>
    connect(const std::string& client_name, const service_id& service, object_function_table_root table,
            std::function<void(std::uint64_t)> on_notification,
            std::shared_ptr<executor_thread_pool_interface> executor = nullptr);

private:
    gds_helper::process_local<client_private_instance> instance;
};

} // namespace ipc_rpc::client
