// Every function of the catalogue, bound to the objects that answer it.
#pragma once

#include "service_core.h"

#include <ipc_rpc/function_table.h>

#include <functional>
#include <memory>

namespace service {

// `notifier_of` gives the way to raise numbers at the client behind a connection.
[[nodiscard]] ipc_rpc::object_function_table_root
make_function_table(const std::shared_ptr<service_core>& core,
                    std::function<notify_function(const std::shared_ptr<ipc_rpc::rpc_connection_client>&)> notifier_of);

} // namespace service
