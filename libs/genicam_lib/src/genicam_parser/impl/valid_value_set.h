// The list of values that a number may take.
#pragma once

#include "node_base.h"

namespace GenICam::impl {

class valid_value_set_node {
public:
    // From "ValidValueSet", integers parted by ";". A bad item is skipped.
    void resolve(const node_base_data& owner, const element_view& view);

    // Whether the document has one, be it empty.
    [[nodiscard]] bool is_present() const noexcept { return present; }
    [[nodiscard]] std::span<const int64_t> values() const noexcept { return sorted; }

private:
    std::span<const int64_t> sorted; // in the arena
    bool present = false;
};

} // namespace GenICam::impl
