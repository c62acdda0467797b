// One direction of a connection: a ring of blocks in shared memory, with a bitmap of notifications beside it.
//
// Whatever lies in the shared region is the peer's word: indexes are masked or checked before they are used, names are
// cut at their field, and a wait looks again by itself whether this end has shut the queue, whatever the semaphores
// say.
#pragma once

#include "impl/channel_interface.h"
#include "platform.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <string>
#include <variant>

namespace ipc_rpc {

inline constexpr std::size_t queue_block_size = 4096;
inline constexpr std::uint32_t queue_block_count = 16;
inline constexpr std::uint32_t queue_ring_size = 32; // twice the blocks: a writer never has to look for space
inline constexpr std::uint32_t max_notifications = 512;

// Start of the region; the blocks follow. Zero when created. Fields that both sides write are accessed atomically.
struct shared_queue_header {
    std::uint8_t closed;     // non-zero once either side has shut the queue
    char sent_sem_name[131]; // counts blocks in the sent ring and notifications
    std::uint32_t sent_read; // index fields hold a value below 32
    std::uint32_t sent_write;
    std::uint32_t sent_ring[queue_ring_size];
    char free_sem_name[128]; // counts free blocks
    std::uint32_t free_read;
    std::uint32_t free_write;
    std::uint32_t free_ring[queue_ring_size];
    std::byte reserved_1[44];
    std::uint64_t notify_bits[max_notifications / 64];
    std::byte reserved_2[3456];
};
static_assert(offsetof(shared_queue_header, sent_read) == 132 && offsetof(shared_queue_header, free_sem_name) == 268 &&
              offsetof(shared_queue_header, free_read) == 396 && offsetof(shared_queue_header, free_ring) == 404 &&
              offsetof(shared_queue_header, notify_bits) == 576 && sizeof(shared_queue_header) == 4096);

inline constexpr std::size_t shared_queue_size = sizeof(shared_queue_header) + queue_block_count * queue_block_size;
static_assert(shared_queue_size == 0x11000);

using notification_words = std::array<std::uint64_t, max_notifications / 64>;

// Thread-safe, but for receiving and for peer_shows_life, which each belong to one thread.
class shared_memory_queue final {
public:
    // monostate: the queue is closed. A block of length 0 came with a bad index and is to be dropped.
    using received = std::variant<std::monostate, std::span<std::byte>, notification_words>;

    // The creating side: new objects under `name` and its suffixes. Throws std::system_error.
    shared_memory_queue(const std::string& name, const platform::object_access& access);
    // The opening side. Throws std::system_error.
    explicit shared_memory_queue(const std::string& name);
    shared_memory_queue(const shared_memory_queue&) = delete;
    shared_memory_queue& operator=(const shared_memory_queue&) = delete;

    // Waits until the peer frees a block: the bound of 16 packets in flight is the back-pressure. Empty when the queue
    // is closed.
    [[nodiscard]] std::span<std::byte> acquire_block();
    [[nodiscard]] bool send_block(std::span<std::byte> block);
    // Both steps for a packet of at most one block, if a block is free now. Never waits, neither for the peer nor for a
    // sender who does.
    [[nodiscard]] channel_interface::offered offer(std::span<const std::byte> packet);

    // Waits for a block or notifications. A block stays the receiver's until it is released.
    [[nodiscard]] received receive();
    void release_block(std::span<std::byte> block);

    // Numbers of 512 and above are ignored. False when the queue is closed. Never waits, not even for a peer that
    // has stopped and lets a sender hang in acquire_block.
    bool raise_notification(std::uint64_t number);

    // Whether the peer has done anything since this was asked last: taken the notification that each asking leaves, or
    // freed a block. True when first asked. For one thread of the sending side; never waits.
    [[nodiscard]] bool peer_shows_life();

    // Either end: everyone who waits on this queue returns, now and from now on.
    void shut() noexcept;
    [[nodiscard]] bool is_closed() const noexcept;

    // The creating side, once the peer has opened the queue: nothing is left then even by a process that is killed.
    void release_names() noexcept;

private:
    [[nodiscard]] std::span<std::byte> block_at(std::uint32_t index) const noexcept;
    [[nodiscard]] std::uint32_t index_of(std::span<std::byte> block) const noexcept;

    platform::shared_mapping mapping;
    shared_queue_header& header;
    std::span<std::byte> blocks;
    platform::named_semaphore sent;
    platform::named_semaphore free;
    std::uint32_t free_write_seen = queue_ring_size; // by peer_shows_life; at first no index
    std::mutex write_mutex; // makes writers of both rings exclusive, and takers of free blocks; never held in a wait
    std::atomic<bool> ended{false};  // shut by this end
    std::atomic<bool> broken{false}; // the peer wrote what no peer writes
};

} // namespace ipc_rpc
