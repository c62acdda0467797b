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
    if (found == entries.end() || found->address != address) return nullptr;
    return found->made_after >= std::max(since, last_clear) ? &*found : nullptr;
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
    const auto find_place = [&] { return std::ranges::lower_bound(entries, address, std::greater{}, &entry::address); };
    auto place = find_place();
    if (place == entries.end() || place->address != address) {
        if (entries.size() == maximum_entries) {
            make_room();
            place = find_place();
        }
        place = entries.insert(place, entry{address, 0, {}, 0});
    }
    std::ranges::copy(data, place->value);
    place->length = data.size();
    place->made_after = change_count;
}

// The valid ones too when most are, or soon there would be no room again.
void register_cache::make_room() noexcept {
    std::erase_if(entries, [&](const entry& e) { return e.made_after < last_clear; });
    if (entries.size() > maximum_entries / 2) entries.clear();
}

void register_cache::invalidate(int64_t address, uint64_t length) noexcept {
    ++change_count;
    for (entry& e : near(address, length)) {
        if (overlaps(e.address, e.length, address, length)) e.made_after = 0;
    }
    for (std::size_t i = texts.size(); i-- > 0;) { // the last takes the place of one that is dropped
        if (overlaps(texts[i]->address, texts[i]->bytes.size(), address, length)) drop(*texts[i]);
    }
}

void register_cache::invalidate(text_entry& text) noexcept {
    ++change_count;
    drop(text);
}

void register_cache::keep(text_entry& text, int64_t address, std::string bytes) {
    if (!text.is_kept()) {
        if (texts.size() == maximum_texts) drop(*texts[next_to_give_way++ % maximum_texts]);
        texts.push_back(&text);
        text.place = texts.size() - 1;
    }
    text.address = address;
    text.bytes = std::move(bytes);
}

void register_cache::drop(text_entry& text) noexcept {
    if (!text.is_kept()) return;
    texts[text.place] = texts.back();
    texts[text.place]->place = text.place;
    texts.pop_back();
    text.place = text_entry::nowhere;
}

void register_cache::clear() noexcept {
    last_clear = ++change_count;
    for (text_entry* text : texts) text->place = text_entry::nowhere;
    texts.clear();
}

} // namespace GenICam::impl
