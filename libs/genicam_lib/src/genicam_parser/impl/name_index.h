// Finds nodes by name: open addressing over hashes, grown by doubling.
#pragma once

#include <GenICam/INode.h>

#include <functional>
#include <string_view>
#include <vector>

namespace GenICam::impl {

class name_index {
    struct slot {
        std::size_t hash = 0;
        std::string_view name;
        INode* node = nullptr; // null: free
    };

    [[nodiscard]] static std::size_t hash_of(std::string_view name) noexcept {
        return std::hash<std::string_view>{}(name);
    }

    template <class Slots>
    [[nodiscard]] static auto& find_slot(Slots& in, std::size_t hash, std::string_view name) noexcept {
        std::size_t at = hash & (in.size() - 1);
        while (in[at].node != nullptr && (in[at].hash != hash || in[at].name != name)) at = (at + 1) & (in.size() - 1);
        return in[at];
    }

public:
    void reserve(std::size_t names) {
        std::size_t places = 256;
        while (places < names * 2) places *= 2;
        if (places > slots.size()) rehash(places);
    }

    // False when the name is taken; the node there stays.
    [[nodiscard]] bool insert(std::string_view name, INode* node) {
        if ((count + 1) * 2 > slots.size()) rehash(slots.empty() ? 256 : slots.size() * 2);
        const std::size_t hash = hash_of(name);
        slot& place = find_slot(slots, hash, name);
        if (place.node != nullptr) return false;
        place = {hash, name, node};
        ++count;
        return true;
    }

    [[nodiscard]] INode* find(std::string_view name) const noexcept {
        if (slots.empty()) return nullptr;
        return find_slot(slots, hash_of(name), name).node;
    }

private:
    void rehash(std::size_t places) {
        std::vector<slot> wider(places);
        for (const slot& old : slots) {
            if (old.node != nullptr) find_slot(wider, old.hash, old.name) = old;
        }
        slots.swap(wider);
    }

    std::vector<slot> slots; // a power of two, at most half full
    std::size_t count = 0;
};

} // namespace GenICam::impl
