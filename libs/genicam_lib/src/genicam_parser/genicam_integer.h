// The forms of "Integer".
#pragma once

#include "numeric_nodes.h"

namespace GenICam::impl {

using integer_floating_value_type = floating_value_type<int64_t>;
using integer_constant_value_type = constant_value_type<int64_t>;
using integer_pValue_type = pValue_type<int64_t>;
using integer_pIndex_type = pIndex_type<int64_t>;

// Reads one node and writes several.
class integer_pValueCopy_type final : public integer_feature<node_base_impl_dependent_cache> {
public:
    using integer_feature::integer_feature;

    void do_resolve_references(document_services& services_, const element_view& view) override;
    [[nodiscard]] INode* get_access_source() const override { return target; }
    // Targets in document order up to the first that fails; those before it stay written.
    [[nodiscard]] std::error_code set_val(int64_t value, unsigned flags) override;
    [[nodiscard]] result<int64_t> get_val(unsigned flags) const override;
    // Without limits of its own: what all targets accept.
    [[nodiscard]] result<int64_t> get_min(unsigned flags) const override {
        return min.is_absent() ? limit_of_targets(limit::min, flags) : integer_feature::get_min(flags);
    }
    [[nodiscard]] result<int64_t> get_max(unsigned flags) const override {
        return max.is_absent() ? limit_of_targets(limit::max, flags) : integer_feature::get_max(flags);
    }

private:
    [[nodiscard]] result<INode*> value_source(unsigned) const override { return target; }
    [[nodiscard]] result<int64_t> limit_of_targets(limit which, unsigned flags) const;

    INode* target = nullptr;             // "pValue"
    arena_vector<INode*, 2> all_targets; // "pValue" and every "pValueCopy"
};

} // namespace GenICam::impl
