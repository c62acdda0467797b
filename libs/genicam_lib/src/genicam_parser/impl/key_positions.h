// Where in a list a key comes first: looked for in order while the list is short, as nearly all are, and by hash from
// then on.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <unordered_map>

namespace GenICam::impl {

template <class Key, class Hash = std::hash<Key>>
class key_positions {
public:
    void add(const Key& key) {
        if (count < first.size()) {
            first[count++] = key;
            return;
        }
        if (count == first.size()) {
            for (std::size_t at = 0; at < count; ++at) by_hash.try_emplace(first[at], at);
        }
        by_hash.try_emplace(key, count++);
    }
    [[nodiscard]] std::optional<std::size_t> find(const Key& key) const {
        if (count <= first.size()) {
            const auto end = first.begin() + static_cast<std::ptrdiff_t>(count);
            const auto found = std::find(first.begin(), end, key);
            if (found == end) return std::nullopt;
            return static_cast<std::size_t>(found - first.begin());
        }
        const auto found = by_hash.find(key);
        if (found == by_hash.end()) return std::nullopt;
        return found->second;
    }

private:
    std::array<Key, 16> first{};
    std::size_t count = 0;
    std::unordered_map<Key, std::size_t, Hash> by_hash; // of all, when there are more
};

} // namespace GenICam::impl
