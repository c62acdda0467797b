// A GenICam register description as a graph of nodes.
#pragma once

#include <GenICam/INode.h>
#include <GenICam/ports.h>
#include <GenICam/value_nodes.h>

#include <cstddef>
#include <memory>
#include <string>

namespace pugi {
class xml_document;
}

namespace GenICam {

// The structure never changes after creation and may be read from several threads at once. Values: see INode.
// Nodes and texts die with the document.
class IGenICamDoc {
public:
    virtual ~IGenICamDoc() = default;
    // Null when there is none of that name and type. Should several elements share a name, the first has it, and a port
    // is found nevertheless.
    [[nodiscard]] virtual INode* find_node(std::string_view name, NodeType_t type) const noexcept = 0;
    [[nodiscard]] virtual INode* find_node(std::string_view name) const noexcept = 0;
    // In document order, nodes with a name taken included, enumeration entries not.
    virtual void for_each_node(const std::function<void(INode*)>& function) const = 0;
    [[nodiscard]] virtual document_info get_document_info() const = 0;
    [[nodiscard]] virtual std::span<INode* const> get_streamable_nodes() const noexcept = 0;
    [[nodiscard]] virtual std::string get_document_url() const = 0;
    // Gives the payload of an event to the nodes with that EventID: its ports take a copy, everything on them and every
    // other node is invalidated. False when no node has the id.
    virtual bool apply_event(uint64_t event_id, std::span<const std::byte> data) = 0;
    // All features below the category "Root"; empty without one.
    [[nodiscard]] virtual std::vector<INode*> get_root_features() const = 0;
    [[nodiscard]] virtual ICategory* get_root_category() const noexcept = 0;

    template <class T>
    [[nodiscard]] T* find(std::string_view name) const noexcept {
        return static_cast<T*>(find_node(name, T::type));
    }
};

// Options word of a document: a non-zero high byte makes every register without a "Cachable" of its own uncached; the
// low byte is kept and has no effect.
inline constexpr uint16_t force_no_cache_option = 0x0100;

// From the bytes of a document in any encoding XML knows; they are copied. Null, and one message, when they are no
// well-formed XML. Every other fault of the document is logged and mended by a default.
[[nodiscard]] std::unique_ptr<IGenICamDoc> create_document(std::span<const std::byte> text, uint16_t options = 0);
[[nodiscard]] std::unique_ptr<IGenICamDoc> create_document(std::string_view text, uint16_t options = 0);

// From a parsed document, which is taken over. Never null.
[[nodiscard]] std::unique_ptr<IGenICamDoc> create_document(pugi::xml_document&& xml, uint16_t options = 0);

} // namespace GenICam
