// The document: owner of the XML, of every node and of the tables that find them.
#pragma once

#include "genicam_port.h"
#include "impl/closure.h"
#include "impl/document_services.h"
#include "impl/element_view.h"
#include "impl/name_index.h"

#include <GenICam/IGenICamDoc.h>

#include <pugixml.hpp>

#include <optional>
#include <string>
#include <unordered_map>

namespace GenICam::impl {

// Nodes keep handles into the XML and read most properties from it on each call, so it stays as it is once built.
class genicam_doc final : public IGenICamDoc, public document_services {
public:
    explicit genicam_doc(uint16_t options) noexcept
        : never_caches(static_cast<uint8_t>(options >> 8)), option_low(static_cast<uint8_t>(options & 0xFF)) {}
    ~genicam_doc() override;

    // False, and a message, when the text is not well-formed.
    [[nodiscard]] bool parse(std::span<const std::byte> text);
    void build(pugi::xml_document&& document);

    [[nodiscard]] INode* find_node(std::string_view name, NodeType_t type) const noexcept override;
    [[nodiscard]] INode* find_node(std::string_view name) const noexcept override;
    void for_each_node(const std::function<void(INode*)>& function) const override;
    [[nodiscard]] document_info get_document_info() const override;
    [[nodiscard]] std::span<INode* const> get_streamable_nodes() const noexcept override { return streamable_nodes; }
    [[nodiscard]] std::string get_document_url() const override { return {}; }
    bool apply_event(uint64_t event_id, std::span<const std::byte> data) override;
    [[nodiscard]] std::vector<INode*> get_root_features() const override;
    [[nodiscard]] ICategory* get_root_category() const noexcept override;

private:
    void add_event_node(uint64_t event_id, IEval* node) override;
    [[nodiscard]] std::pmr::memory_resource& memory_resource() noexcept override { return node_memory; }
    [[nodiscard]] bool force_no_cache() const noexcept override { return never_caches != 0; }
    [[nodiscard]] const element_view* struct_view(pugi::xml_node struct_reg) override;
    [[nodiscard]] closure_state& closures() noexcept override { return walks; }
    void drop_all_caches() override;
    [[nodiscard]] std::size_t& formula_tokens_left() noexcept override { return formula_tokens; }
    void note_fault(IEval& node, std::string text) override;
    [[nodiscard]] std::string_view fault_of(const IEval& node) const noexcept override;

    // The two phases, genicam_doc_build.cpp.
    void build(bool may_have_split_texts);
    void create_nodes();
    void create_node(pugi::xml_node element);
    template <class T>
    void add_node_object(const element_view& view);
    [[nodiscard]] element_view view_of(pugi::xml_node element);
    void add_embedded_swissknifes(const element_view& view);
    void resolve_nodes();

    uint8_t never_caches;
    [[maybe_unused]] uint8_t option_low; // kept, no effect
    std::pmr::monotonic_buffer_resource node_memory{48};
    pugi::xml_document xml;
    std::vector<INode*> nodes; // in creation order
    name_index node_by_name;   // keys are texts of the XML
    // The first port of each name that a node of another kind has taken: a category and a port may well share one
    // ("Device"), and the port is what makes the document work.
    name_index port_by_taken_name;
    std::vector<port_device_type*> ports;
    std::vector<INode*> streamable_nodes;
    struct event_data {
        std::vector<closure_start> nodes;
        lazy_closure closure;
    };
    std::unordered_map<uint64_t, event_data> events;
    closure_state walks;
    // 32 MB: as many as some megabytes of formulas have by themselves.
    std::size_t formula_tokens = 2'000'000;
    std::unordered_map<const IEval*, std::string> faults;

    // While it is built: the views of the nodes, which both phases need, and the last one of a structure.
    struct view_range {
        pugi::xml_node element;
        std::size_t begin;
        std::size_t end;
    };
    std::vector<element_view::found> seen;
    std::size_t view_begin = 0;    // of the view made last, in `seen`
    std::vector<view_range> views; // as nodes
    std::optional<element_view> last_struct;
    std::size_t last_struct_children = 0;
    // Of structures, counted for each entry anew: those of two thousand full structures of 32 bits, each with a dozen
    // children besides.
    std::size_t struct_children_left = 3'000'000;
};

} // namespace GenICam::impl
