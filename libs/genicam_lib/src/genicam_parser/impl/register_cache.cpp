#include "register_cache.h"

#include <algorithm>
#include <functional>

namespace GenICam::impl {

namespace {

// Distances as unsigned differences, so that addresses at the ends of the range do not overflow.
bool overlaps(int64_t a, uint64_t a_length, int64_t b, uint64_t b_length) noexcept {
    return a <= b ? static_cast<uint64_t>(b) - static_cast<uint64_t>(a) < a_length
                  : static_cast<uint64_t>(a) - static_cast<uint64_t>(b) < b_length;
}

} // namespace

const register_cache::entry* register_cache::find(int64_t address) const noexcept {
    const auto found = std::ranges::lower_bound(entries, address, std::greater{}, &entry::address);
    return found != entries.end() && found->address == address && found->valid ? &*found : nullptr;
}

bool register_cache::read(int64_t address, std::span<std::byte> data) const noexcept {
    const entry* found = find(address);
    if (found == nullptr || found->length < data.size()) return false;
    std::copy_n(found->value, data.size(), data.begin());
    return true;
}

void register_cache::store(int64_t address, std::span<const std::byte> data) {
    // A shorter or equal neighbour in the range is superseded; a longer one stays for the registers it belongs to.
    std::erase_if(entries, [&](const entry& e) {
        return e.address != address && e.length <= data.size() && overlaps(e.address, e.length, address, data.size());
    });
    auto place = std::ranges::lower_bound(entries, address, std::greater{}, &entry::address);
    if (place == entries.end() || place->address != address) {
        place = entries.insert(place, entry{address, 0, {}, false});
    }
    std::ranges::copy(data, place->value);
    place->length = data.size();
    place->valid = true;
}

void register_cache::invalidate(int64_t address, uint64_t length) noexcept {
    for (entry& e : entries) {
        // Entries are at most 8 bytes long: from here on nothing reaches up into the range.
        if (e.address < address && static_cast<uint64_t>(address) - static_cast<uint64_t>(e.address) >= maximum_length)
            break;
        if (overlaps(e.address, e.length, address, length)) e.valid = false;
    }
    for (text_entry* text = texts; text != nullptr; text = text->next) {
        if (text->valid && overlaps(text->address, text->bytes.size(), address, length)) text->valid = false;
    }
}

void register_cache::clear() noexcept {
    for (entry& e : entries) e.valid = false;
    for (text_entry* text = texts; text != nullptr; text = text->next) text->valid = false;
}

} // namespace GenICam::impl
