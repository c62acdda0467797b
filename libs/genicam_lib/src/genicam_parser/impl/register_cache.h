// The register cache of a port: entries of up to 8 bytes, found by their address, and the texts of longer registers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace GenICam::impl {

// The last text of one text register. Lives in its node; the cache of its port guards, keeps and drops it.
struct text_entry {
    [[nodiscard]] bool is_kept() const noexcept { return place != nowhere; }

    static constexpr std::size_t nowhere = static_cast<std::size_t>(-1);
    std::size_t place = nowhere; // among the texts of the cache
    int64_t address = 0;
    std::string bytes; // the first of the register; the rest is unknown, or not told apart after a NUL
};

// Registers overlap in real documents, with other lengths too. An entry therefore serves only reads that it covers, and
// a write drops whatever overlaps it. Invalidations are counted, and an entry knows after how many it was made: a
// register that may lie anywhere is invalidated wherever it has lain by refusing the entries of before.
//
// Numbers and texts are bounded: one register whose index runs over a table has as many addresses as that has entries,
// each put before all others, and each invalidation looks at all texts.
//
// Not thread-safe; the port guards it.
class register_cache {
public:
    static constexpr std::size_t maximum_length = 8;
    static constexpr std::size_t maximum_entries = 8192;
    static constexpr std::size_t maximum_texts = 256;
    static constexpr uint64_t from_the_start = 1;

    // How many invalidations there have been, the start being the first.
    [[nodiscard]] uint64_t changes() const noexcept { return change_count; }

    // From a valid entry with this very address that is at least as long and was made after `since` changes or more.
    // False when there is none.
    [[nodiscard]] bool read(int64_t address, std::span<std::byte> data, uint64_t since = from_the_start) const noexcept;
    [[nodiscard]] bool contains(int64_t address, std::size_t length, uint64_t since = from_the_start) const noexcept {
        const entry* found = find(address, since);
        return found != nullptr && found->length >= length;
    }
    // What a read brought, up to 8 bytes. After a write, invalidate first.
    void store(int64_t address, std::span<const std::byte> data);
    // Every entry and text that overlaps the range.
    void invalidate(int64_t address, uint64_t length) noexcept;
    void invalidate(text_entry& text) noexcept;
    // Likewise what a read brought; one of the others gives way when there are too many. Without a change of the count:
    // that is for invalidate, before.
    void keep(text_entry& text, int64_t address, std::string bytes);
    void drop(text_entry& text) noexcept;
    // In the time of the texts kept.
    void clear() noexcept;

    [[nodiscard]] std::size_t entry_count() const noexcept { return entries.size(); }
    [[nodiscard]] std::size_t text_count() const noexcept { return texts.size(); }

private:
    struct entry {
        int64_t address;
        uint64_t length;
        std::byte value[maximum_length];
        uint64_t made_after; // changes; 0: not valid
    };

    [[nodiscard]] const entry* find(int64_t address, uint64_t since) const noexcept;
    // All that may overlap the range, and few others.
    [[nodiscard]] std::span<entry> near(int64_t address, uint64_t length) noexcept;
    void make_room() noexcept;

    std::vector<entry> entries;     // by descending address, no two alike
    std::vector<text_entry*> texts; // those kept, in no order
    std::size_t next_to_give_way = 0;
    uint64_t change_count = from_the_start;
    uint64_t last_clear = from_the_start; // the entries made before are not valid
};

} // namespace GenICam::impl
