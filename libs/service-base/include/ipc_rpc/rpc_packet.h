// Layout of every packet between library and service. Little-endian, no padding, no protocol version: a contract
// between two processes of one machine. A packet is exactly one control message or one shared-memory block.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace ipc_rpc {

static_assert(std::endian::native == std::endian::little, "packets are copied as they lie in memory");

enum class rpc_packet_type : std::uint8_t {
    invalid = 0,
    service_announce = 1, // service to client, control channel
    client_announce = 2,  // client to service, control channel
    call_close = 3,
    call_start = 4,
    call_step = 5,
    ret_start = 6,
    ret_step = 7,
    ret_err = 8,
};
[[nodiscard]] std::string_view to_text(rpc_packet_type type) noexcept;

// The caller wants no reply and keeps no transaction.
inline constexpr std::uint32_t rpc_flag_no_reply = 1;
// Of the caller's side only, never sent; together with no reply: a call that would have to wait for room in the queue
// is not sent and answers std::errc::operation_would_block. For threads that must not wait for the other process.
inline constexpr std::uint32_t rpc_flag_no_wait = 0x80000000;

// Above this a parameter or result block is refused.
inline constexpr std::uint64_t max_param_block = 0x6400000;

// Start of every packet.
struct rpc_packet_header {
    std::uint32_t type_and_flags; // type in the low byte, flags in the upper 24 bits
    std::uint32_t packet_size;    // bytes, this header included
    std::uint64_t seq_id;         // 0 in the announce packets

    [[nodiscard]] rpc_packet_type type() const noexcept { return static_cast<rpc_packet_type>(type_and_flags & 0xFF); }
    [[nodiscard]] std::uint32_t flags() const noexcept { return type_and_flags >> 8; }
};
static_assert(sizeof(rpc_packet_header) == 16 && offsetof(rpc_packet_header, seq_id) == 8);

[[nodiscard]] constexpr rpc_packet_header make_header(rpc_packet_type type, std::uint32_t flags, std::size_t size,
                                                      std::uint64_t seq_id) noexcept {
    return {(flags << 8) | static_cast<std::uint32_t>(type), static_cast<std::uint32_t>(size), seq_id};
}

inline constexpr std::size_t announce_name_size = 128;
inline constexpr std::size_t function_name_size = 64;

struct service_announce_packet {
    rpc_packet_header header;
    char to_client[announce_name_size];   // NUL-terminated name of the queue on which the client receives
    char from_client[announce_name_size]; // and of the one on which it sends
};
static_assert(sizeof(service_announce_packet) == 272 && offsetof(service_announce_packet, from_client) == 144);

// First word of client_announce as it has always been: the flag means nothing here.
inline constexpr std::uint32_t client_announce_first_word = 0x102;

struct client_announce_packet {
    rpc_packet_header header;
    char client_name[announce_name_size]; // NUL-padded
};
static_assert(sizeof(client_announce_packet) == 144);

struct call_start_packet {
    rpc_packet_header header;
    std::uint64_t param_size;    // of the whole parameter block, not of this chunk
    std::uint64_t object_handle; // 0 is the table of global functions
    char function_name[function_name_size];
};
static_assert(sizeof(call_start_packet) == 96 && offsetof(call_start_packet, function_name) == 32);

// call_step, ret_step.
struct step_packet {
    rpc_packet_header header;
    std::uint64_t offset; // where the chunk goes in the block
};
static_assert(sizeof(step_packet) == 24);

struct ret_start_packet {
    rpc_packet_header header;
    std::uint64_t result_size; // of the whole result block
};
static_assert(sizeof(ret_start_packet) == 24);

struct ret_err_packet {
    rpc_packet_header header;
    std::int32_t status;
    std::uint32_t reserved;
};
static_assert(sizeof(ret_err_packet) == 24 && offsetof(ret_err_packet, status) == 16);

struct call_close_packet {
    rpc_packet_header header;
    std::uint64_t object_handle;
};
static_assert(sizeof(call_close_packet) == 24);

} // namespace ipc_rpc
