// A value chosen by an index: a list of (index, node or constant) and a default.
#pragma once

#include "node_or_value.h"

namespace GenICam::impl {

template <class T>
class value_eval_indexed {
public:
    struct entry {
        int64_t index = 0;
        INode* node = nullptr; // null: the value counts
        T value{};
    };

    // False, and a message, without a usable default. Nodes become sources of the owner.
    [[nodiscard]] bool resolve_references(node_base_data& owner, const element_view& view);

    [[nodiscard]] std::size_t size() const noexcept { return entries.size(); }
    // The first entry of this index, which is looked for in all, else the default.
    [[nodiscard]] entry& choose(int64_t index) noexcept {
        for (entry& candidate : entries.view()) {
            if (candidate.index == index) return candidate;
        }
        return fallback;
    }

private:
    arena_vector<entry, 1> entries;
    entry fallback;
};

} // namespace GenICam::impl
