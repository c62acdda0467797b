// "Category": the tree of features.
#pragma once

#include "impl/implement_inode.h"

#include <GenICam/value_nodes.h>

namespace GenICam::impl {

class category_type final : public implement_inode<node_base_impl_readonly, ICategory> {
public:
    using implement_inode::implement_inode;

    void do_resolve_references(document_services& services_, const element_view& view) override;
    [[nodiscard]] std::span<INode* const> get_features() const noexcept override { return features.view(); }
    [[nodiscard]] std::vector<INode*> get_all_features() const override;

private:
    arena_vector<INode*, 1> features;
};

} // namespace GenICam::impl
