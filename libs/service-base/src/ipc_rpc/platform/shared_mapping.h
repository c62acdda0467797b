// Memory that processes share, and what protects a program from peers that shrink it.
#pragma once

#include "shared_names.h"

#include <atomic>
#include <cstddef>
#include <span>
#include <string>
#include <utility>

namespace ipc_rpc::platform {

// Protects a program from peers that shrink the memory they share with it. It belongs to a program, which installs it
// before its first mapping; a library can't claim what it needs.
class mapping_guard {
public:
    // The flag is set once an access has found nothing there; the region then reads as zeros. Null without room.
    [[nodiscard]] virtual const std::atomic<bool>* add(std::span<std::byte> region) noexcept = 0;
    virtual void remove(std::span<std::byte> region) noexcept = 0;

protected:
    ~mapping_guard() = default;
};
void install_mapping_guard(mapping_guard& guard) noexcept;

// A region shared under a name. Failures throw std::system_error.
class shared_mapping final {
public:
    // New and zeroed; refused when the name exists. Owns the name until release_name or destruction.
    [[nodiscard]] static shared_mapping create(const std::string& name, std::size_t size, const object_access& access);
    // The whole existing object, at least `min_size` bytes.
    [[nodiscard]] static shared_mapping open(const std::string& name, std::size_t min_size);

    shared_mapping(shared_mapping&& other) noexcept
        : mapped(std::exchange(other.mapped, {})),
          owned_name(std::exchange(other.owned_name, {})),
          broken(std::exchange(other.broken, nullptr)) {}
    shared_mapping& operator=(shared_mapping&&) = delete;
    ~shared_mapping();

    [[nodiscard]] std::span<std::byte> bytes() const noexcept { return mapped; }
    // The peer took the memory away. Only a program with a guard lives to ask.
    [[nodiscard]] bool is_broken() const noexcept { return broken != nullptr && broken->load(); }
    void release_name() noexcept;

private:
    explicit shared_mapping(std::string name) noexcept : owned_name(std::move(name)) {}
    void map(int descriptor, std::size_t size);

    std::span<std::byte> mapped;
    std::string owned_name; // empty: opened, or the name is gone
    const std::atomic<bool>* broken = nullptr;
};

} // namespace ipc_rpc::platform
