// The evaluating half of a node: links, invalidation and the graph that drives it.
//
// Two kinds of edges are kept at the node they lead away from. `users` are the nodes that read this one. `invalidates`
// are those it invalidates by declaration: they name it in "pInvalidator", or it selects them. Against the direction of
// `users` run the sources of a node: what it reads.
#pragma once

#include <GenICam/INode.h>

#include "element_view.h"

#include <span>
#include <vector>

namespace GenICam {

namespace impl {
class document_services;
}

class IEval {
public:
    virtual ~IEval() = default;
    [[nodiscard]] virtual INode* as_inode() noexcept = 0;
    // Called once, when all nodes exist, with the view of the node's own element.
    virtual void resolve_references(const impl::element_view& view) = 0;
    // Called once, when all nodes are resolved: what was added to its sources and to what it invalidates stays there
    // once.
    virtual void drop_repeated_links() = 0;
    virtual void on_invalidate() = 0;
    virtual void notify_invalidated() = 0;
    virtual void add_invalidates(IEval* node) = 0;
    virtual void add_user(IEval* node) = 0;
    [[nodiscard]] virtual std::span<IEval* const> get_users() const noexcept = 0;
    virtual void add_selecting(INode* node) = 0;
    [[nodiscard]] virtual std::span<IEval* const> get_invalidates() const noexcept = 0;
    // May name a node more than once.
    virtual void collect_sources(std::vector<IEval*>& out) const = 0;
    virtual void do_resolve_references(impl::document_services& services, const impl::element_view& xml) = 0;
    virtual void collect_value_sources(std::vector<IEval*>& out) const = 0;
    [[nodiscard]] virtual std::span<INode* const> get_selected_nodes() const noexcept = 0;
    // The node whose access mode this one takes over; null when it has its own.
    [[nodiscard]] virtual INode* get_access_source() const = 0;
    virtual void invalidate_register() = 0;

    // Scratch of the closure walk, guarded by the document's closure lock, and of the build before that.
    struct visit_record {
        uint64_t walk : 56 = 0; // number of the walk the marks belong to
        uint64_t marks : 8 = 0;
    } visit;
};

} // namespace GenICam
