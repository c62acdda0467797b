// This process and its threads, seen from a library that a consumer may unload or fork under.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>

namespace gds_helper {

[[nodiscard]] std::int64_t process_id() noexcept;

// Names the calling thread for debuggers; the system cuts to what it can hold.
void set_thread_name(std::string_view name) noexcept;

// Asks for above-normal priority for the calling thread, and none that it starts; a thread that has it already keeps
// what it has. False when the system refuses.
[[nodiscard]] bool raise_thread_priority() noexcept;

// The calling thread's sleeps end when they should, and not up to a tick of the system's choice later.
void sleep_precisely() noexcept;

// Owns an object with threads or waiters. In a child made by fork those threads do not exist: joining one, or
// destroying a condition that had a waiter, would hang the child at exit, so there the object is left alone.
template <class T>
class process_local final {
public:
    process_local() = default;
    explicit process_local(std::shared_ptr<T> object) : owned(std::move(object)), owner(process_id()) {}
    process_local(process_local&& other) noexcept : owned(std::move(other.owned)), owner(other.owner) {}
    process_local& operator=(process_local&& other) noexcept {
        if (this != &other) {
            reset();
            owned = std::move(other.owned);
            owner = other.owner;
        }
        return *this;
    }
    ~process_local() { reset(); }

    [[nodiscard]] bool is_foreign() const noexcept { return process_id() != owner; }
    [[nodiscard]] T* get() const noexcept { return owned.get(); }
    [[nodiscard]] T* operator->() const noexcept { return owned.get(); }
    [[nodiscard]] T& operator*() const noexcept { return *owned; }
    [[nodiscard]] const std::shared_ptr<T>& shared() const noexcept { return owned; }
    explicit operator bool() const noexcept { return owned != nullptr; }

    void reset() noexcept {
        if (owned && is_foreign()) {
            // A reference that nobody gives back: it keeps the object alive for ever.
            alignas(std::shared_ptr<T>) std::byte kept[sizeof(std::shared_ptr<T>)];
            ::new (static_cast<void*>(kept)) std::shared_ptr<T>(std::move(owned));
        }
        owned.reset();
    }

private:
    std::shared_ptr<T> owned;
    std::int64_t owner = 0;
};

} // namespace gds_helper
