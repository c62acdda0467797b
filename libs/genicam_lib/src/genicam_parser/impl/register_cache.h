// The register cache of a port: entries of up to 8 bytes, found by their address.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace GenICam::impl {

// Not thread-safe; the port guards it.
class register_cache {
public:
    static constexpr std::size_t maximum_length = 8;

    // A valid entry with this very address, whatever its length: copies up to 8 bytes. False when there is none.
    [[nodiscard]] bool read(int64_t address, std::span<std::byte> data) const noexcept;
    [[nodiscard]] bool contains(int64_t address) const noexcept { return find(address) != nullptr; }
    void store(int64_t address, std::span<const std::byte> data);
    // Every entry that overlaps the range.
    void invalidate(int64_t address, uint64_t length) noexcept;
    void clear() noexcept;

private:
    struct entry {
        int64_t address;
        uint64_t length;
        std::byte value[maximum_length];
        bool valid;
    };

    [[nodiscard]] const entry* find(int64_t address) const noexcept;

    std::vector<entry> entries; // by descending address, no two alike
};

} // namespace GenICam::impl
