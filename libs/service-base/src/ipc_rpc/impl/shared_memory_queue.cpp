// A ring is written by one process, under its mutex, and read by the other with compare-and-exchange. The writer's
// store of the entry comes before its release of the write index; the reader acquires that index, so it sees the entry
// and the block's contents. An index only ever moves when its entry was taken, and a block is in one place at a time:
// free ring, sender, sent ring, receiver. 16 blocks in rings of 32 can't overrun.
#include "impl/shared_memory_queue.h"

#include <ipc_rpc/limits.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>
#include <thread>
#include <utility>

namespace ipc_rpc {

namespace {

constexpr std::uint32_t ring_mask = queue_ring_size - 1;
constexpr unsigned wake_all = 100;
constexpr int lock_attempts = 20;                          // each with a yield
constexpr std::uint64_t life_sign = max_notifications - 1; // means nothing to the peer, who only takes it

template <class T>
std::atomic_ref<T> shared(T& field) noexcept {
    return std::atomic_ref<T>{field};
}

void push(std::uint32_t (&ring)[queue_ring_size], std::uint32_t& write, std::uint32_t block) noexcept {
    const std::uint32_t at = shared(write).load(std::memory_order_relaxed) & ring_mask;
    shared(ring[at]).store(block, std::memory_order_relaxed);
    shared(write).exchange((at + 1) & ring_mask, std::memory_order_acq_rel);
}

enum class taken { entry, nothing, lost_race };

taken take(std::uint32_t (&ring)[queue_ring_size], std::uint32_t& read, std::uint32_t& write,
           std::uint32_t& block) noexcept {
    std::uint32_t raw = shared(read).load(std::memory_order_acquire);
    const std::uint32_t at = raw & ring_mask;
    if (at == (shared(write).load(std::memory_order_acquire) & ring_mask)) return taken::nothing;
    block = shared(ring[at]).load(std::memory_order_relaxed);
    return shared(read).compare_exchange_strong(raw, (at + 1) & ring_mask, std::memory_order_acq_rel)
               ? taken::entry
               : taken::lost_race;
}

template <std::size_t N>
std::string name_in(const char (&field)[N]) {
    return {field, std::find(field, field + N, '\0')};
}

template <std::size_t N>
std::string put_name(char (&field)[N], const std::string& name) {
    if (name.size() >= N) {
        throw std::system_error(std::make_error_code(std::errc::filename_too_long), "Failed to create semaphore");
    }
    std::memcpy(field, name.c_str(), name.size() + 1);
    return name;
}

shared_queue_header& header_of(std::span<std::byte> region) noexcept {
    return *std::launder(reinterpret_cast<shared_queue_header*>(region.data()));
}

} // namespace

shared_memory_queue::shared_memory_queue(const std::string& name, const platform::object_access& access)
    : mapping(platform::shared_mapping::create(name, shared_queue_size, access)),
      header(header_of(mapping.bytes())),
      blocks(mapping.bytes().subspan(sizeof(shared_queue_header), queue_block_count * queue_block_size)),
      sent(platform::named_semaphore::create(put_name(header.sent_sem_name, name + "sent_sem"), access)),
      free(platform::named_semaphore::create(put_name(header.free_sem_name, name + "free_sem"), access)) {
    for (std::uint32_t block = 0; block < queue_block_count; ++block) {
        push(header.free_ring, header.free_write, block);
        free.post(1);
    }
}

shared_memory_queue::shared_memory_queue(const std::string& name)
    : mapping(platform::shared_mapping::open(name, shared_queue_size)),
      header(header_of(mapping.bytes())),
      blocks(mapping.bytes().subspan(sizeof(shared_queue_header), queue_block_count * queue_block_size)),
      sent(platform::named_semaphore::open(name_in(header.sent_sem_name))),
      free(platform::named_semaphore::open(name_in(header.free_sem_name))) {}

std::span<std::byte> shared_memory_queue::block_at(std::uint32_t index) const noexcept {
    return index < queue_block_count ? blocks.subspan(index * queue_block_size, queue_block_size)
                                     : std::span<std::byte>{};
}

std::uint32_t shared_memory_queue::index_of(std::span<std::byte> block) const noexcept {
    return static_cast<std::uint32_t>(static_cast<std::size_t>(block.data() - blocks.data()) / queue_block_size);
}

bool shared_memory_queue::is_closed() const noexcept {
    return ended || broken || mapping.is_broken() || sent.is_broken() || free.is_broken() ||
           shared(header.closed).load(std::memory_order_acquire) != 0;
}

std::span<std::byte> shared_memory_queue::acquire_block() {
    while (!is_closed()) {
        const auto result = free.wait(limits::wait_slice);
        if (result == platform::named_semaphore::outcome::broken) broken = true;
        if (result != platform::named_semaphore::outcome::taken) continue;
        const std::lock_guard guard{write_mutex};
        taken got = taken::lost_race;
        std::uint32_t block = 0;
        while (got == taken::lost_race && !is_closed()) {
            got = take(header.free_ring, header.free_read, header.free_write, block);
        }
        if (got != taken::entry) continue; // the peer counted what it did not put there
        return is_closed() ? std::span<std::byte>{} : block_at(block);
    }
    return {};
}

bool shared_memory_queue::send_block(std::span<std::byte> block) {
    const std::lock_guard guard{write_mutex};
    if (is_closed()) return false;
    push(header.sent_ring, header.sent_write, index_of(block));
    sent.post(1);
    return true;
}

channel_interface::offered shared_memory_queue::offer(std::span<const std::byte> packet) {
    using offered = channel_interface::offered;
    // A sender holds the lock for a moment.
    std::unique_lock guard{write_mutex, std::defer_lock};
    for (int i = 0; i < lock_attempts && !guard.try_lock(); ++i) std::this_thread::yield();
    if (is_closed()) return offered::closed;
    std::uint32_t index = 0;
    if (!guard.owns_lock() || free.wait(std::chrono::milliseconds{0}) != platform::named_semaphore::outcome::taken ||
        take(header.free_ring, header.free_read, header.free_write, index) != taken::entry) {
        return offered::would_wait;
    }
    const std::span<std::byte> block = block_at(index);
    if (block.size() < packet.size()) return offered::closed; // not an index: the peer is out of its mind
    std::memcpy(block.data(), packet.data(), packet.size());
    push(header.sent_ring, header.sent_write, index);
    sent.post(1);
    return offered::sent;
}

shared_memory_queue::received shared_memory_queue::receive() {
    while (!is_closed()) {
        std::uint32_t block = 0;
        const taken result = take(header.sent_ring, header.sent_read, header.sent_write, block);
        if (result == taken::entry) return block_at(block);
        if (result == taken::lost_race) continue;

        notification_words words{};
        bool any = false;
        for (std::size_t i = 0; i < words.size(); ++i) {
            words[i] = shared(header.notify_bits[i]).exchange(0, std::memory_order_acq_rel);
            any = any || words[i] != 0;
        }
        if (any) return words;
        if (sent.wait(limits::wait_slice) == platform::named_semaphore::outcome::broken) broken = true;
    }
    return {};
}

void shared_memory_queue::release_block(std::span<std::byte> block) {
    if (block.empty()) return;
    const std::lock_guard guard{write_mutex};
    if (is_closed()) return;
    push(header.free_ring, header.free_write, index_of(block));
    free.post(1);
}

bool shared_memory_queue::raise_notification(std::uint64_t number) {
    if (is_closed()) return false;
    if (number >= max_notifications) return true;
    const std::uint64_t bit = std::uint64_t{1} << (number & 63);
    const std::uint64_t before = shared(header.notify_bits[number >> 6]).fetch_or(bit, std::memory_order_acq_rel);
    if ((before & bit) == 0) sent.post(1);
    return true;
}

bool shared_memory_queue::peer_shows_life() {
    if (is_closed()) return false;
    const std::uint32_t free_write = shared(header.free_write).load(std::memory_order_acquire) & ring_mask;
    const bool freed = std::exchange(free_write_seen, free_write) != free_write;
    constexpr std::uint64_t bit = std::uint64_t{1} << (life_sign & 63);
    const bool taken_away = (shared(header.notify_bits[life_sign >> 6]).load(std::memory_order_acquire) & bit) == 0;
    if (taken_away) raise_notification(life_sign);
    return freed || taken_away;
}

void shared_memory_queue::shut() noexcept {
    if (ended.exchange(true)) return;
    // Whatever the peer wrote there before: it may also have died between its flag and its wake-ups.
    shared(header.closed).store(1, std::memory_order_release);
    sent.post(wake_all);
    free.post(wake_all);
}

void shared_memory_queue::release_names() noexcept {
    mapping.release_name();
    sent.release_name();
    free.release_name();
}

} // namespace ipc_rpc
