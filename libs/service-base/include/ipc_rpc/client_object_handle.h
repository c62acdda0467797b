// Shared handle of an object on the other end of a connection.
#pragma once

#include <ipc_rpc/param_block.h>
#include <ipc_rpc/rpc_connection_client.h>
#include <ipc_rpc/rpc_packet.h>

#include <memory>

namespace ipc_rpc {

// Copies share the object; when the last one goes and the connection still lives, the object is closed there and the
// answer is awaited (never longer than the connection lives). Thread-safe like a std::shared_ptr.
class client_object_handle final {
public:
    client_object_handle() = default;
    // Owns `handle` from now on. Handle 0 stands for the global functions and is never closed.
    client_object_handle(std::weak_ptr<rpc_connection_client> connection, std::uint64_t handle);

    // The global functions of a connection.
    [[nodiscard]] static client_object_handle global(std::weak_ptr<rpc_connection_client> connection) {
        return {std::move(connection), 0};
    }

    // 0 when empty or global.
    [[nodiscard]] std::uint64_t value() const noexcept;
    explicit operator bool() const noexcept { return data != nullptr; }
    void reset() noexcept { data.reset(); }

    // R is what the function's `expected<R, std::error_code>` holds. Without a reply: success once it is sent.
    template <class R, class... Args>
    [[nodiscard]] std::expected<R, std::error_code> call(std::uint32_t flags, std::string_view name,
                                                         const Args&... args) const {
        param_writer out;
        (encode(out, args), ...);
        return finish_call<R>(flags, name, out);
    }

    // A function of the catalogue: `handle.invoke<catalogue::open_device>(id, access)`. Arguments are of the
    // declared types, or a std::string_view and std::span for strings and vectors.
    template <class F, class... Args>
    [[nodiscard]] auto invoke(const Args&... args) const {
        param_writer out;
        F::encode_arguments(out, args...);
        return finish_call<typename F::result_type>(F::flags, F::name, out);
    }

private:
    struct handle_data;

    template <class R>
    std::expected<R, std::error_code> finish_call(std::uint32_t flags, std::string_view name,
                                                  param_writer& parameters) const {
        const std::shared_ptr<rpc_connection_client> connection = lock_connection();
        if (!connection) return std::unexpected(make_error_code(status::connection_closed));
        std::vector<std::byte> bytes;
        if (const auto error = connection->call(value(), name, parameters.buffer(), &bytes, flags)) {
            return std::unexpected(error);
        }
        std::expected<R, std::error_code> result;
        if ((flags & rpc_flag_no_reply) != 0) return result;
        param_reader in{bytes, connection};
        if (!decode(in, result)) return std::unexpected(make_error_code(status::bad_return_value));
        return result;
    }
    [[nodiscard]] std::shared_ptr<rpc_connection_client> lock_connection() const noexcept;

    std::shared_ptr<handle_data> data;
};

} // namespace ipc_rpc
