// Joins the evaluating half of a node with one of the public interfaces.
#pragma once

#include "node_base.h"
#include "text_values.h"

namespace GenICam::impl {

template <class Base, class Interface>
class implement_inode : public Base, public Interface {
public:
    using Base::Base;

    [[nodiscard]] INode* as_inode() noexcept final { return this; }
    [[nodiscard]] IEval* as_eval() noexcept final { return this; }

    [[nodiscard]] NodeType_t node_type() const noexcept final { return Interface::type; }
    [[nodiscard]] std::string_view get_name() const noexcept final { return Base::name; }
    [[nodiscard]] std::string_view get_display_name() const noexcept final { return Base::child_text("DisplayName"); }
    [[nodiscard]] std::string_view get_description() const noexcept final { return Base::child_text("Description"); }
    [[nodiscard]] std::string_view get_tool_tip() const noexcept final { return Base::child_text("ToolTip"); }
    [[nodiscard]] NameSpace_t get_name_space() const noexcept final {
        return parse_word<NameSpace_t>(Base::xml.attribute("NameSpace").value()).value_or(NameSpace_t::Custom);
    }
    [[nodiscard]] MergePriority_t get_merge_priority() const noexcept final {
        return parse_word<MergePriority_t>(Base::xml.attribute("MergePriority").value()).value_or(MergePriority_t::Mid);
    }
    [[nodiscard]] std::optional<bool> get_expose_static() const noexcept final {
        const auto word = parse_word<YesNo_t>(Base::xml.attribute("ExposeStatic").value());
        if (!word) return std::nullopt;
        return *word == YesNo_t::Yes;
    }
    [[nodiscard]] std::string_view get_docu_url() const noexcept final { return Base::child_text("DocuURL"); }
    [[nodiscard]] bool is_deprecated() const noexcept final {
        return text_of(Base::xml.child("IsDeprecated")) == "Yes";
    }
    [[nodiscard]] bool is_streamable() const noexcept final { return Base::streamable; }
    [[nodiscard]] Access_t get_access_mode() const final { return Base::effective_access_mode(); }
    [[nodiscard]] Visibility_t getVisibility() const final { return Base::visibility(); }
    [[nodiscard]] std::optional<uint64_t> get_event_id() const noexcept final {
        return parse_hex(text_of(Base::xml.child("EventID")));
    }
    [[nodiscard]] INode* get_alias() const noexcept final { return Base::linked_node("pAlias"); }
    [[nodiscard]] INode* get_cast_alias() const noexcept final { return Base::linked_node("pCastAlias"); }
    [[nodiscard]] INode* get_block_polling() const noexcept final { return Base::linked_node("pBlockPolling"); }
    [[nodiscard]] result<bool> is_implemented(unsigned flags) const final {
        return Base::linked_state(Base::is_implemented_node, true, flags);
    }
    [[nodiscard]] bool is_implemented() const final { return is_implemented(0).value_or(true); }
    [[nodiscard]] result<bool> is_available(unsigned flags) const final {
        return Base::linked_state(Base::is_available_node, true, flags);
    }
    [[nodiscard]] bool is_available() const final { return is_available(0).value_or(true); }
    [[nodiscard]] result<bool> is_locked(unsigned flags) const final {
        return Base::linked_state(Base::is_locked_node, false, flags);
    }
    [[nodiscard]] bool is_locked() const final { return is_locked(0).value_or(false); }
    [[nodiscard]] std::span<const extension_entry> get_extensions() const noexcept final { return Base::extensions; }
    void set_on_invalidated(INode::invalidated_callback callback) final {
        Base::on_invalidated =
            callback ? std::make_shared<const INode::invalidated_callback>(std::move(callback)) : nullptr;
    }
    [[nodiscard]] std::span<INode* const> get_selecting_nodes() const noexcept final { return Base::selecting.view(); }
    void get_dependent_nodes(std::vector<INode*>& out) final { Base::dependent_nodes(out); }
    void get_source_nodes(std::vector<INode*>& out) final { Base::source_nodes(out); }
    [[nodiscard]] std::string_view get_fault() const final { return Base::fault(); }
    [[nodiscard]] INode* get_is_locked_node() const noexcept final { return Base::is_locked_node; }
};

} // namespace GenICam::impl
