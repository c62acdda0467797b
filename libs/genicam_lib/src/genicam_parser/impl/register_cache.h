// The register cache of a port: entries of up to 8 bytes, found by their address, and the texts of longer registers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace GenICam::impl {

// The last text of one text register. Lives in its node; the cache of the port it is added to guards and drops it.
struct text_entry {
    bool valid = false;
    int64_t address = 0;
    std::string bytes; // the first of the register; the rest is unknown, or not told apart after a NUL
    text_entry* next = nullptr;
};

// Registers overlap in real documents, with other lengths too. An entry therefore serves only reads that it covers, and
// a write drops whatever overlaps it.
//
// Not thread-safe; the port guards it.
class register_cache {
public:
    static constexpr std::size_t maximum_length = 8;

    // From a valid entry with this very address that is at least as long. False when there is none.
    [[nodiscard]] bool read(int64_t address, std::span<std::byte> data) const noexcept;
    [[nodiscard]] bool contains(int64_t address, std::size_t length) const noexcept {
        const entry* found = find(address);
        return found != nullptr && found->length >= length;
    }
    // What a read brought, up to 8 bytes. After a write, invalidate first.
    void store(int64_t address, std::span<const std::byte> data);
    // Every entry and text that overlaps the range.
    void invalidate(int64_t address, uint64_t length) noexcept;
    void add_text(text_entry& text) noexcept {
        text.next = texts;
        texts = &text;
    }
    void clear() noexcept;

private:
    struct entry {
        int64_t address;
        uint64_t length;
        std::byte value[maximum_length];
        bool valid;
    };

    [[nodiscard]] const entry* find(int64_t address) const noexcept;
    // All that may overlap the range, and few others.
    [[nodiscard]] std::span<entry> near(int64_t address, uint64_t length) noexcept;

    std::vector<entry> entries; // by descending address, no two alike
    text_entry* texts = nullptr;
};

} // namespace GenICam::impl
