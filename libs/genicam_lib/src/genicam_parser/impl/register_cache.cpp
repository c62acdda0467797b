#include "register_cache.h"

#include <algorithm>
#include <functional>
#include <limits>

namespace GenICam::impl {

namespace {

// Distances as unsigned differences, so that addresses at the ends of the range do not overflow.
bool overlaps(int64_t a, uint64_t a_length, int64_t b, uint64_t b_length) noexcept {
    return a <= b ? static_cast<uint64_t>(b) - static_cast<uint64_t>(a) < a_length
                  : static_cast<uint64_t>(a) - static_cast<uint64_t>(b) < b_length;
}

} // namespace

const register_cache::entry* register_cache::find(int64_t address, uint64_t since) const noexcept {
    const auto found = std::ranges::lower_bound(entries, address, std::greater{}, &entry::address);
    return found != entries.end() && found->address == address && found->made_after >= since ? &*found : nullptr;
}

bool register_cache::read(int64_t address, std::span<std::byte> data, uint64_t since) const noexcept {
    const entry* found = find(address, since);
    if (found == nullptr || found->length < data.size()) return false;
    std::copy_n(found->value, data.size(), data.begin());
    return true;
}

std::span<register_cache::entry> register_cache::near(int64_t address, uint64_t length) noexcept {
    if (length == 0) return {};
    constexpr int64_t highest = std::numeric_limits<int64_t>::max();
    const uint64_t room = static_cast<uint64_t>(highest) - static_cast<uint64_t>(address);
    const int64_t last =
        length - 1 > room ? highest : static_cast<int64_t>(static_cast<uint64_t>(address) + (length - 1));
    const auto begin = std::ranges::lower_bound(entries, last, std::greater{}, &entry::address);
    // Entries are at most 8 bytes long: further down nothing reaches up into the range.
    const auto end = std::find_if(begin, entries.end(), [&](const entry& e) {
        return e.address < address &&
               static_cast<uint64_t>(address) - static_cast<uint64_t>(e.address) >= maximum_length;
    });
    return {begin, end};
}

void register_cache::store(int64_t address, std::span<const std::byte> data) {
    // A shorter or equal neighbour in the range is superseded; a longer one stays for the registers it belongs to.
    for (entry& e : near(address, data.size())) {
        if (e.address != address && e.length <= data.size() && overlaps(e.address, e.length, address, data.size()))
            e.made_after = 0;
    }
    auto place = std::ranges::lower_bound(entries, address, std::greater{}, &entry::address);
    if (place == entries.end() || place->address != address) {
        place = entries.insert(place, entry{address, 0, {}, 0});
    }
    std::ranges::copy(data, place->value);
    place->length = data.size();
    place->made_after = change_count;
}

void register_cache::invalidate(int64_t address, uint64_t length) noexcept {
    ++change_count;
    for (entry& e : near(address, length)) {
        if (overlaps(e.address, e.length, address, length)) e.made_after = 0;
    }
    for (text_entry* text = texts; text != nullptr; text = text->next) {
        if (text->valid && overlaps(text->address, text->bytes.size(), address, length)) text->valid = false;
    }
}

void register_cache::invalidate(text_entry& text) noexcept {
    ++change_count;
    text.valid = false;
}

void register_cache::clear() noexcept {
    ++change_count;
    for (entry& e : entries) e.made_after = 0;
    for (text_entry* text = texts; text != nullptr; text = text->next) text->valid = false;
}

} // namespace GenICam::impl
