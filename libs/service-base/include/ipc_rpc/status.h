// What can go wrong in a remote call itself, and the error categories that both processes know by number.
#pragma once

#include <cstdint>
#include <system_error>

namespace ipc_rpc {

// On the wire in error replies: the numbers are a contract.
enum class status : std::int32_t {
    success = 0,
    function_not_found = 5,
    object_not_found = 6,
    unregistered_error_category = 7,
    null_registration = 10,
    name_already_used = 11,
    bad_parameter = 20,
    bad_return_value = 21,
    bad_packet = 30,
    unknown_transaction = 31,
    param_block_too_large = 40,
    object_expired = 41,
    connection_closed = 42,
    resource_exhausted = 43,
};

[[nodiscard]] const std::error_category& ipc_rpc_error_category() noexcept;
[[nodiscard]] inline std::error_code make_error_code(status value) noexcept {
    return {static_cast<int>(value), ipc_rpc_error_category()};
}

// Ids under which std::error_code travels.
inline constexpr std::uint64_t category_id_rpc = 0;
inline constexpr std::uint64_t category_id_system = 1;
inline constexpr std::uint64_t category_id_generic = 2;
inline constexpr std::uint64_t category_id_iostream = 3;
inline constexpr std::uint64_t category_id_genicam = 20;
inline constexpr std::uint64_t category_id_gigecam = 21;

// Makes a category known for the wire; the first free of 16 slots, nothing when all are in use. The category must
// live as long as calls are made. Thread-safe. 0 to 3 are there from the start.
void register_error_category(const std::error_category& category, std::uint64_t id) noexcept;

// An error code as it travels. Values of the system and generic category are another platform's numbers on the wire.
struct wire_error {
    std::uint64_t value = 0;
    std::uint64_t category_id = 0;
};
// A code of an unregistered category becomes status 7, whatever value it had.
[[nodiscard]] wire_error to_wire(const std::error_code& code) noexcept;
// An unknown category id becomes status 7.
[[nodiscard]] std::error_code from_wire(const wire_error& error) noexcept;

} // namespace ipc_rpc

template <>
struct std::is_error_code_enum<ipc_rpc::status> : std::true_type {};
