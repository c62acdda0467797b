// The forms of "Command".
#pragma once

#include "impl/implement_inode.h"
#include "impl/node_or_value.h"

#include <GenICam/value_nodes.h>

namespace GenICam::impl {

class command_Value_type final : public implement_inode<node_base_impl_value, ICommand> {
public:
    using implement_inode::implement_inode;

    void do_resolve_references(document_services& services_, const element_view& view) override;
    [[nodiscard]] std::span<INode* const> get_selected() const noexcept override { return selected; }
    [[nodiscard]] std::error_code execute(unsigned flags) override;
    [[nodiscard]] result<bool> is_done(unsigned flags) const override;

private:
    node_or_const_value<int64_t> command_value;
    int64_t stored = 0;
};

class command_pValue_type final : public implement_inode<node_base_impl_dependent_cache, ICommand> {
public:
    using implement_inode::implement_inode;

    void do_resolve_references(document_services& services_, const element_view& view) override;
    [[nodiscard]] INode* get_access_source() const override { return target; }
    [[nodiscard]] std::span<INode* const> get_selected() const noexcept override { return selected; }
    [[nodiscard]] std::error_code execute(unsigned flags) override;
    [[nodiscard]] result<bool> is_done(unsigned flags) const override;

private:
    node_or_const_value<int64_t> command_value;
    INode* target = nullptr;
};

} // namespace GenICam::impl
