// What every node of a document can tell about itself.
#pragma once

#include <GenICam/error.h>
#include <GenICam/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace GenICam {

class IEval; // the evaluating half of a node, internal to the engine

// A node lives exactly as long as its document, and so do the texts it returns.
// Properties and values, is_implemented and its like included, may be read from several threads at once. Whatever
// changes a value, and set_on_invalidated, must be serialised by the caller with all other use of the document's
// values; only the operations of a port itself are thread-safe.
class INode {
public:
    using invalidated_callback = std::function<void(INode&)>;

    // Tells which derived interface a static_cast may use; see node_cast.
    [[nodiscard]] virtual NodeType_t node_type() const noexcept = 0;
    [[nodiscard]] virtual std::string_view get_name() const noexcept = 0;
    // Texts are empty when the element is absent.
    [[nodiscard]] virtual std::string_view get_display_name() const noexcept = 0;
    [[nodiscard]] virtual std::string_view get_description() const noexcept = 0;
    [[nodiscard]] virtual std::string_view get_tool_tip() const noexcept = 0;
    [[nodiscard]] virtual NameSpace_t get_name_space() const noexcept = 0;
    [[nodiscard]] virtual MergePriority_t get_merge_priority() const noexcept = 0;
    [[nodiscard]] virtual std::optional<bool> get_expose_static() const noexcept = 0;
    [[nodiscard]] virtual std::string_view get_docu_url() const noexcept = 0;
    [[nodiscard]] virtual bool is_deprecated() const noexcept = 0;
    [[nodiscard]] virtual bool is_streamable() const noexcept = 0;
    // The imposed mode, else that of the node the value comes from, else RW.
    [[nodiscard]] virtual Access_t get_access_mode() const = 0;
    [[nodiscard]] virtual Visibility_t getVisibility() const = 0;
    [[nodiscard]] virtual std::optional<uint64_t> get_event_id() const noexcept = 0;
    [[nodiscard]] virtual INode* get_alias() const noexcept = 0;
    [[nodiscard]] virtual INode* get_cast_alias() const noexcept = 0;
    [[nodiscard]] virtual INode* get_block_polling() const noexcept = 0;
    // The forms without flags read with flags 0; an evaluation that fails there counts as implemented, available and
    // not locked.
    [[nodiscard]] virtual result<bool> is_implemented(unsigned flags) const = 0;
    [[nodiscard]] virtual bool is_implemented() const = 0;
    [[nodiscard]] virtual result<bool> is_available(unsigned flags) const = 0;
    [[nodiscard]] virtual bool is_available() const = 0;
    [[nodiscard]] virtual result<bool> is_locked(unsigned flags) const = 0;
    [[nodiscard]] virtual bool is_locked() const = 0;
    [[nodiscard]] virtual std::span<const extension_entry> get_extensions() const noexcept = 0;
    // Called after a write, an event or a rebound port has invalidated the node: on the thread that caused it, once per
    // cause, when all caches concerned have been dropped already; an event's data has come to all its ports then. Not
    // called where a hostile document has one access change millions of nodes. Replaces the former callback; empty
    // removes it.
    virtual void set_on_invalidated(invalidated_callback callback) = 0;
    [[nodiscard]] virtual IEval* as_eval() noexcept = 0;
    // The selectors of this node.
    [[nodiscard]] virtual std::span<INode* const> get_selecting_nodes() const noexcept = 0;
    // Everything whose value or state may change with this node, breadth first, each once, this node not among them.
    virtual void get_dependent_nodes(std::vector<INode*>& out) = 0;
    // Everything that this node's value is computed from, in the same order: what it reads, what that reads.
    virtual void get_source_nodes(std::vector<INode*>& out) = 0;
    [[nodiscard]] virtual INode* get_is_locked_node() const noexcept = 0;
    // Why the node cannot work, where the document is at fault: the formulas that do not compile, with their text, node
    // and place, its own or those of the nearest node that its value or address comes from. Empty when there are none.
    // Lives as long as the document.
    [[nodiscard]] virtual std::string_view get_fault() const = 0;

protected:
    ~INode() = default;
};

// The node as T, or null when it is none (null for null).
template <class T>
[[nodiscard]] T* node_cast(INode* node) noexcept {
    return node != nullptr && node->node_type() == T::type ? static_cast<T*>(node) : nullptr;
}

} // namespace GenICam
