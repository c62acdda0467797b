// "String".
#pragma once

#include "impl/implement_inode.h"

#include <GenICam/value_nodes.h>

namespace GenICam::impl {

// A text of its own, or that of another string node.
class string_type final : public implement_inode<node_base_impl_value, IString> {
public:
    using implement_inode::implement_inode;

    void do_resolve_references(document_services& services_, const element_view& view) override;
    [[nodiscard]] INode* get_access_source() const override { return target; }
    [[nodiscard]] result<std::string> get_val(unsigned flags) const override;
    [[nodiscard]] std::error_code set_val(std::string_view text, unsigned flags) override;
    [[nodiscard]] result<uint64_t> get_max_length(unsigned flags) const override;

private:
    IString* target = nullptr;
    std::string stored;
};

} // namespace GenICam::impl
