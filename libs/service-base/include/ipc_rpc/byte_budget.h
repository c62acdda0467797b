// A bound on bytes, or things, that are held at one time, perhaps as a part of a larger one.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

namespace ipc_rpc {

// Thread-safe.
class byte_budget final {
public:
    explicit byte_budget(std::uint64_t limit, std::shared_ptr<byte_budget> part_of = nullptr) noexcept
        : most(limit), whole(std::move(part_of)) {}

    [[nodiscard]] bool take(std::uint64_t bytes) noexcept {
        std::uint64_t now = used.load(std::memory_order_relaxed);
        do {
            if (bytes > most - now) return false;
        } while (!used.compare_exchange_weak(now, now + bytes, std::memory_order_relaxed));
        if (!whole || whole->take(bytes)) return true;
        used.fetch_sub(bytes, std::memory_order_relaxed);
        return false;
    }
    void give_back(std::uint64_t bytes) noexcept {
        used.fetch_sub(bytes, std::memory_order_relaxed);
        if (whole) whole->give_back(bytes);
    }
    [[nodiscard]] std::uint64_t held() const noexcept { return used.load(std::memory_order_relaxed); }

private:
    const std::uint64_t most;
    const std::shared_ptr<byte_budget> whole;
    std::atomic<std::uint64_t> used{0};
};

// Bytes taken from a budget until it goes.
class reserved_bytes final {
public:
    // Null when the budget has no room.
    [[nodiscard]] static std::shared_ptr<reserved_bytes> take(const std::shared_ptr<byte_budget>& from,
                                                              std::uint64_t bytes) {
        auto made = std::make_shared<reserved_bytes>();
        if (!from->take(bytes)) return nullptr;
        made->budget = from;
        made->count = bytes;
        return made;
    }
    reserved_bytes() = default;
    reserved_bytes(const reserved_bytes&) = delete;
    reserved_bytes& operator=(const reserved_bytes&) = delete;
    ~reserved_bytes() {
        if (budget) budget->give_back(count);
    }

private:
    std::shared_ptr<byte_budget> budget;
    std::uint64_t count = 0;
};

} // namespace ipc_rpc
