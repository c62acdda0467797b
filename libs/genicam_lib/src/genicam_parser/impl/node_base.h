// What all nodes have in common, and the three bases they derive from.
#pragma once

#include "arena_vector.h"
#include "closure.h"
#include "document_services.h"
#include "element_view.h"
#include "eval_scope.h"

#include <memory>
#include <optional>

namespace GenICam::impl {

class node_base_data : public IEval {
public:
    node_base_data(document_services& services_, const element_view& view);

    void resolve_references(const element_view& view) final;
    void drop_repeated_links() final;
    void on_invalidate() override {}
    void notify_invalidated() final;
    void add_invalidates(IEval* node) final;
    void add_selecting(INode* node) final;
    [[nodiscard]] std::span<IEval* const> get_invalidates() const noexcept final { return invalidates.view(); }
    void collect_sources(std::vector<IEval*>& out) const final;
    void collect_value_sources(std::vector<IEval*>& out) const final;
    [[nodiscard]] std::span<INode* const> get_selected_nodes() const noexcept final { return selected; }
    [[nodiscard]] INode* get_access_source() const override { return nullptr; }
    void invalidate_register() override {}
    void add_user(IEval*) override {}
    [[nodiscard]] std::span<IEval* const> get_users() const noexcept override { return {}; }

    [[nodiscard]] std::string_view get_node_name() const noexcept { return name; }

    // Links of the node's own element. A name that leads nowhere is logged and gives null.
    [[nodiscard]] INode* resolve_optional_node(std::string_view element_name, pugi::xml_node element) const;
    [[nodiscard]] INode* resolve_node_contents(pugi::xml_node element) const;
    // Makes `node` a source of this one; null is ignored.
    void add_source(INode* node);
    void resolve_selected(const element_view& view);

    [[nodiscard]] document_services& document() const noexcept { return *services; }

protected:
    // Whether the node may be read or written now.
    [[nodiscard]] genicam_errc check_access(bool is_write, unsigned flags) const;
    void set_actual_access_mode(Access_t mode);
    [[nodiscard]] Access_t effective_access_mode() const;

    [[nodiscard]] pugi::xml_node child(const char* element_name) const noexcept { return xml.child(element_name); }
    [[nodiscard]] pugi::xml_node element() const noexcept { return xml; }

    // What the element does not state itself it takes from another one: conditions, lock, and all its invalidators.
    void inherit_links(const element_view& from, const element_view& own);

    // The properties behind INode, see implement_inode.
    [[nodiscard]] std::string_view child_text(const char* element_name) const noexcept;
    [[nodiscard]] INode* linked_node(const char* element_name) const noexcept;
    [[nodiscard]] Visibility_t visibility() const;
    [[nodiscard]] result<bool> linked_state(INode* link, bool without, unsigned flags) const;
    void dependent_nodes(std::vector<INode*>& out);
    void source_nodes(std::vector<INode*>& out);
    [[nodiscard]] std::string_view fault() const;

    // One access: counts as a step and, unless that already fails, checks the access rights.
    class access_scope {
    public:
        access_scope(const node_base_data& node, bool is_write, unsigned flags)
            : error(steps ? node.check_access(is_write, flags) : genicam_errc::invalid_document) {}
        [[nodiscard]] bool denied() const noexcept { return error != genicam_errc::success; }

    private:
        eval_scope steps;

    public:
        const genicam_errc error;
    };

    std::string_view name;
    pugi::xml_node xml;
    document_services* services;
    INode* is_implemented_node = nullptr;
    INode* is_available_node = nullptr;
    INode* is_locked_node = nullptr;
    std::span<const extension_entry> extensions;
    std::span<INode* const> selected;
    std::shared_ptr<const INode::invalidated_callback> on_invalidated;
    std::optional<Access_t> imposed_access;
    bool streamable = false;
    bool has_common_links; // pIsImplemented and its like; without them an entry has nothing to resolve
    arena_vector<IEval*, 1> invalidates;
    arena_vector<INode*, 1> selecting;
    arena_vector<IEval*, 2> sources;

private:
    [[nodiscard]] INode* resolve_state_link(std::string_view element_name, pugi::xml_node element);
    void resolve_invalidators(const element_view& view);
    void read_extensions(const element_view& view);
};

// Adds the list of users. One node's additions come together, so the last entry tells whether it is there already.
class node_base_with_users : public node_base_data {
public:
    using node_base_data::node_base_data;
    void add_user(IEval* node) final;
    [[nodiscard]] std::span<IEval* const> get_users() const noexcept final { return users.view(); }

private:
    arena_vector<IEval*, 2> users;
};

// Holds a value, or a range of a port: a write must invalidate whoever depends on it.
class node_base_impl_value : public node_base_with_users {
public:
    using node_base_with_users::node_base_with_users;
    void on_invalidate() final { invalidate_register(); }

protected:
    // A register has just written its own cache and skips itself.
    void invalidate_dependents(bool skip_self);

private:
    lazy_closure value_closure;
};

// The value comes from other nodes.
class node_base_impl_dependent_cache : public node_base_with_users {
public:
    using node_base_with_users::node_base_with_users;
};

// No value, no users.
class node_base_impl_readonly : public node_base_data {
public:
    using node_base_data::node_base_data;
};

} // namespace GenICam::impl
