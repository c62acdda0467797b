#include <ipc_rpc/client_object_handle.h>

#include <gds_helper/log.h>

#include <new>

namespace ipc_rpc {

struct client_object_handle::handle_data {
    std::weak_ptr<rpc_connection_client> connection;
    std::uint64_t handle;

    handle_data(std::weak_ptr<rpc_connection_client> to, std::uint64_t value)
        : connection(std::move(to)), handle(value) {}
    handle_data(const handle_data&) = delete;
    handle_data& operator=(const handle_data&) = delete;
    ~handle_data() {
        if (handle == 0) return;
        const auto live = connection.lock();
        if (!live) return;
        try {
            static_cast<void>(live->close_handle(handle, 0));
        } catch (const std::bad_alloc&) {
            // It takes memory to wait for the answer, and none to send the word.
            static_cast<void>(live->close_handle(handle, rpc_flag_no_reply));
        }
    }
};

client_object_handle::client_object_handle(std::weak_ptr<rpc_connection_client> connection, std::uint64_t handle)
    : data(std::make_shared<handle_data>(std::move(connection), handle)) {}

std::uint64_t client_object_handle::value() const noexcept { return data ? data->handle : 0; }

std::shared_ptr<rpc_connection_client> client_object_handle::lock_connection() const noexcept {
    return data ? data->connection.lock() : nullptr;
}

void param_codec<client_object_handle>::encode(param_writer& out, const client_object_handle& value) {
    ipc_rpc::encode(out, value.value());
}

bool param_codec<client_object_handle>::decode(param_reader& in, client_object_handle& value) {
    std::uint64_t handle = 0;
    if (!ipc_rpc::decode(in, handle)) return false;
    if (in.origin().expired()) {
        gds_helper::log::get(gds_helper::log::logger_id::ipc)->error("IPC target object already expired-");
        return false;
    }
    try {
        value = client_object_handle{in.origin(), handle};
    } catch (const std::bad_alloc&) { // nobody knows it yet, so nobody else gives it back
        const auto live = in.origin().lock();
        if (live && handle != 0) static_cast<void>(live->close_handle(handle, rpc_flag_no_reply));
        throw;
    }
    return true;
}

} // namespace ipc_rpc
