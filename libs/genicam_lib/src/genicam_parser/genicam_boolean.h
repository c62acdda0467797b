// The forms of "Boolean".
#pragma once

#include "impl/implement_inode.h"

#include <GenICam/value_nodes.h>

namespace GenICam::impl {

// The integers that stand for true and false.
struct boolean_values {
    int64_t on = 1;
    int64_t off = 0;

    void read(const element_view& view);
};

class boolean_Value_type final : public implement_inode<node_base_impl_value, IBoolean> {
public:
    using implement_inode::implement_inode;

    void do_resolve_references(document_services& services_, const element_view& view) override;
    [[nodiscard]] std::span<INode* const> get_selected() const noexcept override { return selected; }
    [[nodiscard]] std::error_code set_val(bool value, unsigned flags) override;
    [[nodiscard]] result<bool> get_val(unsigned flags) const override;

private:
    boolean_values values;
    int64_t stored = 0;
};

class boolean_pValue_type final : public implement_inode<node_base_impl_dependent_cache, IBoolean> {
public:
    using implement_inode::implement_inode;

    void do_resolve_references(document_services& services_, const element_view& view) override;
    [[nodiscard]] INode* get_access_source() const override { return target; }
    [[nodiscard]] std::span<INode* const> get_selected() const noexcept override { return selected; }
    [[nodiscard]] std::error_code set_val(bool value, unsigned flags) override;
    [[nodiscard]] result<bool> get_val(unsigned flags) const override;

private:
    boolean_values values;
    INode* target = nullptr;
};

} // namespace GenICam::impl
