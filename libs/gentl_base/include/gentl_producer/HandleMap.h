// The registry that turns a consumer's opaque handle into a live object, or into nothing.
#pragma once

#include <gentl_producer/IHandleTarget.h>

#include <array>
#include <cstdint>
#include <memory>
#include <shared_mutex>
#include <string>
#include <vector>

namespace GenTL::Producer {

class ISystem;
class IInterface;
class IDevice;
class IDataStream;
class IEvent;

// 2 and 3 are unused and kept free.
enum class HandleKind : int32_t { RemotePort = 0, Event = 1, System = 4, Interface = 5, Device = 6, DataStream = 7 };

// A handle is the address of the object. Only weak references are held: parents own their children.
// Thread-safe. No lock is held while a producer object is called.
class HandleMap final {
public:
    struct Found {
        std::shared_ptr<IHandleTarget> target; // empty when unknown or expired
        HandleKind kind{};
    };

    uint64_t add(std::string name, const std::shared_ptr<IHandleTarget>& target, HandleKind kind);
    // The first entry with this handle; an unknown handle is ignored.
    void remove(uint64_t handle);
    [[nodiscard]] Found lookup(uint64_t handle) const;
    // Logs what is left at warning level and returns the number of entries.
    int64_t dump_handle_map() const;

private:
    struct Entry {
        uint64_t handle;
        std::string name;
        std::weak_ptr<IHandleTarget> target;
        HandleKind kind;
    };

    mutable std::shared_mutex lock; // guards entries
    std::vector<Entry> entries;     // a few dozen at most; insertion order serves the dump
};

// The library's one map.
[[nodiscard]] HandleMap& handle_map() noexcept;

[[nodiscard]] inline uint64_t handle_value(const IHandleTarget* target) noexcept {
    return reinterpret_cast<uint64_t>(target);
}
[[nodiscard]] inline void* as_handle(IHandleTarget* target) noexcept { return target; }

// Registers an object and gives its handle.
template <class T>
[[nodiscard]] void* add_handle(std::string name, const std::shared_ptr<T>& object, HandleKind kind) {
    handle_map().add(std::move(name), object, kind);
    return as_handle(object.get());
}

inline void remove_handle(const IHandleTarget* target) { handle_map().remove(handle_value(target)); }

// The modules above an object that is being called, nearest first: the object uses them by plain reference, so they
// must not go before it. Nobody but a call holds them this way: parents own their children, never the other way round.
class held_parents final {
public:
    held_parents() = default;
    held_parents(const held_parents&) = delete;
    held_parents& operator=(const held_parents&) = delete;
    ~held_parents() {
        for (auto& parent : parents) parent.reset(); // what a closing thread left to us goes in the usual order
    }
    // False when one of them is going already.
    [[nodiscard]] bool hold(const IHandleTarget& object) {
        const IHandleTarget* below = &object;
        for (auto& parent : parents) {
            const std::weak_ptr<IHandleTarget>* above = below->parent_target();
            if (above == nullptr) return true;
            if (!(parent = above->lock())) return false;
            below = parent.get();
        }
        return true;
    }

private:
    std::array<std::shared_ptr<IHandleTarget>, 3> parents; // device, interface and system at most
};

// An object that stays whole for as long as this holds it. Thread-bound.
template <class T>
struct held_object {
    held_parents parents;
    std::shared_ptr<T> object; // goes first
};

// The object behind the handle if it and those above it are alive and it is of this family (modules are ports and event
// sources as well).
template <class T>
[[nodiscard]] bool resolve(const void* handle, held_object<T>& found) {
    const auto target = handle_map().lookup(reinterpret_cast<uint64_t>(handle)).target;
    if (target && found.parents.hold(*target)) found.object = std::dynamic_pointer_cast<T>(target);
    return found.object != nullptr;
}

} // namespace GenTL::Producer
