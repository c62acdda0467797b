#include "node_base.h"

#include "eval_helper.h"
#include "log.h"
#include "text_values.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

namespace GenICam::impl {

node_base_data::node_base_data(document_services& services_, const element_view& view)
    : name(view.element().attribute("Name").value()),
      xml(view.element()),
      services(&services_),
      has_common_links(view.has(tag::pIsImplemented) || view.has(tag::pIsAvailable) || view.has(tag::pIsLocked) ||
                       view.has(tag::pInvalidator) || view.has(tag::EventID)) {
    if (const pugi::xml_node imposed = view[tag::ImposedAccessMode]) {
        imposed_access = parse_word<Access_t>(text_of(imposed));
        if (!imposed_access)
            log(level_fault, "{}. Failed to parse 'ImposedAccessMode' node contents: '{}'.", name, text_of(imposed));
    }
    read_extensions(view);
    if (const pugi::xml_node element = view[tag::Streamable]) {
        const auto word = parse_word<YesNo_t>(text_of(element));
        if (!word) log(level_fault, "{}. Failed to parse 'Streamable' xml node contents '{}'.", name, text_of(element));
        streamable = word == YesNo_t::Yes;
    }
}

void node_base_data::read_extensions(const element_view& view) {
    const pugi::xml_node extension = view[tag::Extension];
    if (!extension) return;
    std::size_t count = 0;
    for (const pugi::xml_node entry : extension.children()) count += entry.type() == pugi::node_element;
    if (count == 0) return;
    auto* entries = static_cast<extension_entry*>(
        services->memory_resource().allocate(count * sizeof(extension_entry), alignof(extension_entry)));
    std::size_t i = 0;
    for (const pugi::xml_node entry : extension.children()) {
        if (entry.type() == pugi::node_element)
            std::construct_at(entries + i++, extension_entry{entry.name(), entry.child_value()});
    }
    extensions = {entries, count};
}

void node_base_data::resolve_references(const element_view& view) {
    is_implemented_node = resolve_state_link("pIsImplemented", view[tag::pIsImplemented]);
    is_available_node = resolve_state_link("pIsAvailable", view[tag::pIsAvailable]);
    is_locked_node = resolve_state_link("pIsLocked", view[tag::pIsLocked]);
    resolve_invalidators(view);
    if (const pugi::xml_node element = view[tag::EventID]) {
        if (const auto id = parse_hex(text_of(element))) services->add_event_node(*id, this);
    }
    do_resolve_references(*services, view);
}

void node_base_data::resolve_invalidators(const element_view& view) {
    view.for_each(tag::pInvalidator, [&](pugi::xml_node element) {
        if (INode* target = resolve_node_contents(element)) target->as_eval()->add_invalidates(this);
    });
}

void node_base_data::inherit_links(const element_view& from, const element_view& own) {
    const auto inherit = [&](INode*& link, tag name_tag, std::string_view element_name) {
        if (!own.has(name_tag)) link = resolve_state_link(element_name, from[name_tag]);
    };
    inherit(is_implemented_node, tag::pIsImplemented, "pIsImplemented");
    inherit(is_available_node, tag::pIsAvailable, "pIsAvailable");
    inherit(is_locked_node, tag::pIsLocked, "pIsLocked");
    resolve_invalidators(from);
}

INode* node_base_data::resolve_state_link(std::string_view element_name, pugi::xml_node element) {
    if (!element) return nullptr;
    const std::string_view target_name = text_of(element);
    INode* target = services->find_node(target_name);
    if (target == nullptr) {
        log(level_fault, "{}. Xml-node '{}', failed to find link target '{}'.", name, element_name, target_name);
        return nullptr;
    }
    switch (target->node_type()) {
    case NodeType_t::Integer:
    case NodeType_t::Float:
    case NodeType_t::Enumeration:
    case NodeType_t::Boolean:
        break;
    default:
        log(level_fault, "{}. Xml-node '{}', INode '{}' is not Boolean compatible.", name, element_name,
            target->get_name());
        return nullptr;
    }
    target->as_eval()->add_user(this);
    return target;
}

INode* node_base_data::resolve_optional_node(std::string_view element_name, pugi::xml_node element) const {
    if (!element) return nullptr;
    INode* target = services->find_node(text_of(element));
    if (target == nullptr)
        log(level_fault, "{}. Failed to resolve '{}' xml node contents '{}'.", name, element_name, text_of(element));
    return target;
}

INode* node_base_data::resolve_node_contents(pugi::xml_node element) const {
    INode* target = services->find_node(text_of(element));
    if (target == nullptr)
        log(level_fault, "{}. Failed to resolve xml_node '{}' contents '{}' due no node with that name.", name,
            element.name(), text_of(element));
    return target;
}

void node_base_data::add_source(INode* node) {
    if (node == nullptr) return;
    IEval* source = node->as_eval();
    source->add_user(this);
    if (!sources.empty() && sources.view().back() == source) return;
    sources.push_back(source, services->memory_resource());
}

// Repeats that follow each other are not even added; looking for others one by one as they come would take the square
// of a list, of which a document may have one of a hundred thousand.
void node_base_data::drop_repeated_links() {
    const auto drop_repeated = [this](auto& links) {
        if (links.size() < 2) return;
        const uint64_t walk = ++services->closures().last_walk;
        links.erase_if([walk](IEval* node) {
            const bool is_repeated = node->visit.walk == walk;
            node->visit.walk = walk;
            return is_repeated;
        });
    };
    drop_repeated(sources);
    drop_repeated(invalidates);
}

void node_base_data::resolve_selected(const element_view& view) {
    std::vector<INode*> found;
    view.for_each(tag::pSelected, [&](pugi::xml_node element) {
        INode* target = resolve_optional_node("pSelected", element);
        if (target == nullptr) return;
        found.push_back(target);
        target->as_eval()->add_selecting(as_inode());
        add_invalidates(target->as_eval());
    });
    if (found.empty()) return;
    auto* kept =
        static_cast<INode**>(services->memory_resource().allocate(found.size() * sizeof(INode*), alignof(INode*)));
    std::ranges::copy(found, kept);
    selected = {kept, found.size()};
}

void node_base_data::add_invalidates(IEval* node) {
    if (!invalidates.empty() && invalidates.view().back() == node) return;
    invalidates.push_back(node, services->memory_resource());
}

void node_base_data::add_selecting(INode* node) { selecting.push_back(node, services->memory_resource()); }

void node_base_data::collect_sources(std::vector<IEval*>& out) const {
    const auto declared = invalidates.view();
    out.insert(out.end(), declared.begin(), declared.end());
    collect_value_sources(out);
}

void node_base_data::collect_value_sources(std::vector<IEval*>& out) const {
    const auto read = sources.view();
    out.insert(out.end(), read.begin(), read.end());
}

void node_base_data::notify_invalidated() {
    if (!on_invalidated) return;
    // The callback may replace itself while it runs.
    const auto running = on_invalidated;
    const eval_callback_scope steps;
    (*running)(*as_inode());
}

genicam_errc node_base_data::check_access(bool is_write, unsigned flags) const {
    if (flags & access_flags::no_access_check) return genicam_errc::success;
    if (is_implemented_node != nullptr) {
        if (const auto state = get_eval_val<bool>(*is_implemented_node, flags); state && !*state)
            return genicam_errc::node_not_implemented;
    }
    if (is_available_node != nullptr) {
        if (const auto state = get_eval_val<bool>(*is_available_node, flags); state && !*state)
            return genicam_errc::node_not_available;
    }
    const Access_t mode = effective_access_mode();
    // Intended: RW is settled before the lock is looked at, so pIsLocked speaks only for nodes whose effective mode is
    // RO or WO. Few documents impose RO on what they lock: of the 232 nodes with a lock in three makers' documents 11
    // do. A write to one of the others goes to the camera, which refuses it itself.
    if (mode == Access_t::RW) return genicam_errc::success;
    if (!is_write) return mode == Access_t::WO ? genicam_errc::access_denied : genicam_errc::success;
    if (!(flags & access_flags::ignore_lock) && is_locked_node != nullptr) {
        if (const auto state = get_eval_val<bool>(*is_locked_node, flags); state && *state)
            return genicam_errc::node_locked;
    }
    return mode == Access_t::RO ? genicam_errc::access_denied : genicam_errc::success;
}

void node_base_data::set_actual_access_mode(Access_t mode) {
    if (!imposed_access) {
        imposed_access = mode;
    } else if (*imposed_access != mode) {
        log(level_fault, "{}. Tried to change access mode from ImposedAccessMode of '{}' to '{}'.", name,
            word_of(*imposed_access), word_of(mode));
    }
}

Access_t node_base_data::effective_access_mode() const {
    if (imposed_access) return *imposed_access;
    const eval_scope steps;
    if (!steps) return Access_t::RW;
    const INode* source = get_access_source();
    return source != nullptr ? source->get_access_mode() : Access_t::RW;
}

std::string_view node_base_data::child_text(const char* element_name) const noexcept {
    return xml.child_value(element_name);
}

INode* node_base_data::linked_node(const char* element_name) const noexcept {
    return services->find_node(text_of(xml.child(element_name)));
}

Visibility_t node_base_data::visibility() const {
    const pugi::xml_node element = xml.child("Visibility");
    if (!element) return Visibility_t::Beginner;
    const auto word = parse_word<Visibility_t>(text_of(element));
    if (!word) log(level_fault, "{}. Failed to parse 'Visibility' xml node contents '{}'.", name, text_of(element));
    return word.value_or(Visibility_t::Beginner);
}

result<bool> node_base_data::linked_state(INode* link, bool without, unsigned flags) const {
    if (link == nullptr) return without;
    return get_eval_val<bool>(*link, flags);
}

namespace {

// Breadth first from a node, which is left out; `next` appends where the edges of a node lead.
void walk(IEval& start, auto&& next, std::vector<INode*>& out) {
    std::unordered_set<IEval*> seen{&start};
    std::vector<IEval*> order{&start}, ends;
    for (std::size_t at = 0; at < order.size(); ++at) {
        ends.clear();
        next(*order[at], ends);
        for (IEval* node : ends) {
            if (seen.insert(node).second) order.push_back(node);
        }
    }
    out.reserve(out.size() + order.size() - 1);
    for (std::size_t at = 1; at < order.size(); ++at) out.push_back(order[at]->as_inode());
}

} // namespace

void node_base_data::dependent_nodes(std::vector<INode*>& out) {
    const auto next = [](const IEval& node, std::vector<IEval*>& ends) {
        for (const auto edges : {node.get_invalidates(), node.get_users()})
            ends.insert(ends.end(), edges.begin(), edges.end());
    };
    walk(*this, next, out);
}

void node_base_data::source_nodes(std::vector<INode*>& out) {
    walk(
        *this, [](const IEval& node, std::vector<IEval*>& ends) { node.collect_value_sources(ends); }, out);
}

std::string_view node_base_data::fault() const {
    std::unordered_set<const IEval*> seen{this};
    std::vector<const IEval*> order{this};
    std::vector<IEval*> read;
    for (std::size_t at = 0; at < order.size(); ++at) {
        if (const std::string_view text = services->fault_of(*order[at]); !text.empty()) return text;
        read.clear();
        order[at]->collect_value_sources(read);
        for (const IEval* node : read) {
            if (seen.insert(node).second) order.push_back(node);
        }
    }
    return {};
}

void node_base_with_users::add_user(IEval* node) {
    const auto present = users.view();
    if (present.empty() || present.back() != node) users.push_back(node, services->memory_resource());
}

void node_base_impl_value::invalidate_dependents(bool skip_self) {
    const closure_start start{this, closure_start::from::users};
    invalidate_closure(value_closure, {&start, 1}, skip_self ? this : nullptr, *services);
}

} // namespace GenICam::impl
