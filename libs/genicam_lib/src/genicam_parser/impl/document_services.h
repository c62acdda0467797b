// What a node sees of its document.
#pragma once

#include "IEval.h"

#include <memory_resource>
#include <mutex>

namespace GenICam::impl {

// Thread-safe: who walks holds `lock`.
struct closure_state {
    std::mutex lock; // guards the rest, every IEval::visit and the arena once the build is over
    uint64_t last_walk = 0;
    // Of all lists kept together: 32 MB, fifty times what those of three makers' documents take, a list for each number
    // that can be written.
    std::size_t entries_left = 4'000'000;
};

class document_services {
public:
    [[nodiscard]] virtual INode* find_node(std::string_view name) const noexcept = 0;
    [[nodiscard]] virtual INode* find_node(std::string_view name, NodeType_t type) const noexcept = 0;
    virtual void add_event_node(uint64_t event_id, IEval* node) = 0;
    [[nodiscard]] virtual std::pmr::memory_resource& memory_resource() noexcept = 0;
    // Registers without a "Cachable" of their own are not cached.
    [[nodiscard]] virtual bool force_no_cache() const noexcept = 0;
    // The children of a "StructReg", for one of its entries; kept until the next one is asked for, as its entries
    // follow each other. Each entry walks over all of them and takes links of them, so they count as many times as
    // there are entries: null once a document has too many.
    [[nodiscard]] virtual const element_view* struct_view(pugi::xml_node struct_reg) = 0;
    [[nodiscard]] virtual closure_state& closures() noexcept = 0;
    // Of all ports, each of which takes a step of the access.
    virtual void drop_all_caches() = 0;
    // Tokens that formulas not yet compiled may take, all together. An expression is copied to wherever it is named, so
    // the text's length bounds nothing.
    [[nodiscard]] virtual std::size_t& formula_tokens_left() noexcept = 0;
    // Why a node cannot work, for whoever meets its error later. While the document is built only.
    virtual void note_fault(IEval& node, std::string text) = 0;
    [[nodiscard]] virtual std::string_view fault_of(const IEval& node) const noexcept = 0;

protected:
    ~document_services() = default;
};

} // namespace GenICam::impl
