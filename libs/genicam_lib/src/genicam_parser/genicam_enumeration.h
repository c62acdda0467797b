// "EnumEntry", and the forms of "Enumeration".
#pragma once

#include "impl/implement_inode.h"

#include <GenICam/value_nodes.h>

#include <unordered_map>

namespace GenICam::impl {

class enum_entry_type final : public implement_inode<node_base_impl_readonly, IEnumEntry> {
public:
    enum_entry_type(document_services& services_, const element_view& view, std::size_t position);

    void do_resolve_references(document_services&, const element_view&) override {}
    // A camera has a thousand entries, and few have links.
    void resolve_if_linked() {
        if (has_common_links) resolve_references(element_view{xml});
    }
    [[nodiscard]] int64_t get_value() const noexcept override { return value; }
    [[nodiscard]] std::size_t get_index() const noexcept override { return index; }
    [[nodiscard]] std::optional<double> get_numeric_value() const noexcept override { return numeric_value; }
    [[nodiscard]] bool is_self_clearing() const noexcept override { return text_of(child("IsSelfClearing")) == "Yes"; }
    [[nodiscard]] std::string_view get_symbolic() const noexcept override { return child_text("Symbolic"); }

private:
    std::size_t index;
    int64_t value = 0;
    std::optional<double> numeric_value;
};

// The entries, and everything but where the value is kept.
template <class Base>
class enumeration_node : public implement_inode<Base, IEnumeration> {
public:
    enumeration_node(document_services& services_, const element_view& view);
    ~enumeration_node() override;

    [[nodiscard]] std::string_view get_unit() const final { return this->child_text("Unit"); }
    [[nodiscard]] std::span<INode* const> get_selected() const noexcept final { return this->selected; }
    [[nodiscard]] std::span<IEnumEntry* const> get_entries() const noexcept final { return entries; }
    [[nodiscard]] std::error_code set_selected_entry(IEnumEntry* entry, unsigned flags) final;
    [[nodiscard]] result<IEnumEntry*> get_selected_entry(unsigned flags) const final;
    [[nodiscard]] result<int64_t> get_val(unsigned flags) const final;
    [[nodiscard]] IEnumEntry* find_nearest_entry(double value) const noexcept final;
    [[nodiscard]] IEnumEntry* find_entry_by_value(int64_t value) const noexcept final;
    [[nodiscard]] IEnumEntry* find_entry_by_name(std::string_view name) const noexcept final;

protected:
    void resolve_entries();

private:
    using access_scope = node_base_data::access_scope;
    // Called when access has been checked.
    [[nodiscard]] virtual result<int64_t> read_value_(unsigned flags) const = 0;
    [[nodiscard]] virtual std::error_code write_value_(int64_t value, unsigned flags) = 0;

    std::span<IEnumEntry* const> entries;                      // in the arena
    std::unordered_map<std::string_view, IEnumEntry*> by_name; // of many entries; empty when they are few
};

class enumeration_Value_type final : public enumeration_node<node_base_impl_value> {
public:
    using enumeration_node::enumeration_node;
    void do_resolve_references(document_services& services_, const element_view& view) override;

private:
    [[nodiscard]] result<int64_t> read_value_(unsigned) const override { return stored; }
    [[nodiscard]] std::error_code write_value_(int64_t value, unsigned flags) override;

    int64_t stored = 0;
};

class enumeration_pValue_type final : public enumeration_node<node_base_impl_dependent_cache> {
public:
    using enumeration_node::enumeration_node;
    void do_resolve_references(document_services& services_, const element_view& view) override;
    [[nodiscard]] INode* get_access_source() const override { return target; }

private:
    [[nodiscard]] result<int64_t> read_value_(unsigned flags) const override;
    [[nodiscard]] std::error_code write_value_(int64_t value, unsigned flags) override;

    INode* target = nullptr;
};

} // namespace GenICam::impl
