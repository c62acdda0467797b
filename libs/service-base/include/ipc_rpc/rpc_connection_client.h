// The live connection as either end sees it.
#pragma once

#include <ipc_rpc/function_table.h>

#include <cstddef>
#include <cstdint>
#include <expected>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace ipc_rpc {

// Thread-safe. Calls have no time-out of their own: they end with the answer, or with status::connection_closed when
// the connection ends, at once when it has ended before. In a child made by fork every call answers that too.
// A call that waits must not be made on the thread that delivers packets and notifications; it is refused there with
// std::errc::resource_deadlock_would_occur.
class rpc_connection_client {
public:
    virtual ~rpc_connection_client() = default;

    // Offers an object to the other end; its handle lasts until the other end closes it or the connection ends.
    // status::null_registration for an object that is null or has expired.
    [[nodiscard]] virtual std::expected<std::uint64_t, std::error_code> register_object(object_entry object) = 0;

    // Releases an object of the other end and waits for that, unless flags say no reply.
    virtual std::error_code close_handle(std::uint64_t handle, std::uint32_t flags) = 0;

    // Calls by name. `result` gets the answer's bytes (of an error reply too) and must outlive the call; it may be
    // null only without a reply.
    [[nodiscard]] virtual std::error_code call(std::uint64_t handle, std::string_view function_name,
                                               std::span<const std::byte> parameters, std::vector<std::byte>* result,
                                               std::uint32_t flags) = 0;

    // Who is at the other end, for the log; empty in the client.
    [[nodiscard]] virtual std::string get_peer_info() const { return {}; }
    // The user whose process is at the other end; empty in the client.
    [[nodiscard]] virtual std::optional<std::uint32_t> get_peer_user() const { return std::nullopt; }
    [[nodiscard]] virtual bool is_service() const { return false; }
    [[nodiscard]] virtual bool is_open() const = 0;
};

} // namespace ipc_rpc
