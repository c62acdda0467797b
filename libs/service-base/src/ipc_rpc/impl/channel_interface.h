// Where packets are sent, one block at a time.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace ipc_rpc {

// Thread-safe.
class channel_interface {
public:
    virtual ~channel_interface() = default;
    // A free block at its full length, empty if the channel is closed. Waits for the peer to free one.
    [[nodiscard]] virtual std::span<std::byte> acquire_block() = 0;
    // Hands a filled block to the peer. False if the channel is closed.
    [[nodiscard]] virtual bool send_block(std::span<std::byte> block) = 0;
    // A whole packet of at most one block, if it can be sent without waiting for anybody.
    enum class offered { sent, would_wait, closed };
    [[nodiscard]] virtual offered offer(std::span<const std::byte> packet) = 0;
    [[nodiscard]] virtual std::string_view get_name() const = 0;
};

} // namespace ipc_rpc
