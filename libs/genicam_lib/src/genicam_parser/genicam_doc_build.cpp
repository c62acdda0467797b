// Making nodes of elements. Links may point forward, so all nodes exist before any link is resolved.
#include "genicam_boolean.h"
#include "genicam_category.h"
#include "genicam_command.h"
#include "genicam_converter.h"
#include "genicam_doc.h"
#include "genicam_enumeration.h"
#include "genicam_float.h"
#include "genicam_float_reg.h"
#include "genicam_int_reg.h"
#include "genicam_integer.h"
#include "genicam_masked_int_reg.h"
#include "genicam_port.h"
#include "genicam_register.h"
#include "genicam_string.h"
#include "genicam_stringreg.h"
#include "genicam_swissknife.h"
#include "impl/log.h"
#include "impl/xml_readers.h"

#include <iterator>

namespace GenICam::impl {

namespace {

bool has_constant_address(const element_view& view) noexcept {
    return view.has(tag::Address) && !view.has(tag::pAddress) && !view.has(tag::IntSwissKnife) &&
           !view.has(tag::pIndex);
}

bool has_constant_address_and_length(const element_view& view) noexcept {
    return has_constant_address(view) && view.has(tag::Length) && !view.has(tag::pLength);
}

bool is_text(pugi::xml_node node) noexcept {
    return node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata;
}

// A comment or the bounds of a CDATA section do not end a text: the pieces that follow are put to the first.
void join_text(pugi::xml_node first) {
    std::string joined;
    for (pugi::xml_node next = first.next_sibling(); next && next.type() != pugi::node_element;) {
        const pugi::xml_node after = next.next_sibling();
        if (is_text(next)) {
            if (joined.empty()) joined = first.value();
            joined += next.value();
            first.parent().remove_child(next);
        }
        next = after;
    }
    if (!joined.empty()) first.set_value(joined.c_str());
}

void join_all_texts(pugi::xml_node root) {
    pugi::xml_node at = root;
    while (at) {
        if (const pugi::xml_node first = at.first_child()) {
            at = first;
            continue;
        }
        pugi::xml_node next = at.next_sibling();
        if (next && is_text(at)) {
            join_text(at);
            next = at.next_sibling();
        }
        while (!next) {
            at = at.parent();
            if (!at || at == root) return;
            next = at.next_sibling();
        }
        at = next;
    }
}

bool is_imposed_RO(const element_view& view) {
    const std::string_view name = view.element().attribute("Name").value();
    return get_element_ImposedAccessMode(view[tag::ImposedAccessMode], name) == Access_t::RO;
}

} // namespace

template <class T>
void genicam_doc::add_node_object(const element_view& view) {
    void* place = node_memory.allocate(sizeof(T), alignof(T));
    T* const made = std::construct_at(static_cast<T*>(place), *this, view);
    INode* const node = made->as_inode();
    nodes.push_back(node);
    constexpr bool is_port = std::is_same_v<T, port_device_type>;
    if constexpr (is_port) ports.push_back(made);
    views.push_back({view.element(), view_begin, seen.size()});
    if (!node_by_name.insert(node->get_name(), node)) {
        log(level_fault,
            "Failed to insert element '{}' in lookup-map because an element with the same name is already registered.",
            view.element().name());
        // Asked only where the name's first node is no port.
        if (is_port) (void)port_by_taken_name.insert(node->get_name(), node);
    }
}

void genicam_doc::add_embedded_swissknifes(const element_view& view) {
    view.for_each(tag::IntSwissKnife,
                  [&](pugi::xml_node element) { add_node_object<int_swissknife_type>(view_of(element)); });
}

// For add_node_object, which must follow before the next.
element_view genicam_doc::view_of(pugi::xml_node element) {
    view_begin = seen.size();
    return element_view{element, seen};
}

// The first rule that fits wins. What fits none is no node and no fault.
void genicam_doc::create_node(pugi::xml_node element) {
    const tag kind = tag_of(element.name());
    if (kind == tag::none) return;
    const element_view view = view_of(element);
    switch (kind) {
    case tag::IntConverter:
        return add_node_object<int_converter_type>(view);
    case tag::IntSwissKnife:
        return add_node_object<int_swissknife_type>(view);
    case tag::Converter:
        return add_node_object<float_converter_type>(view);
    case tag::SwissKnife:
        return add_node_object<float_swissknife_type>(view);
    case tag::Category:
        return add_node_object<category_type>(view);
    case tag::Integer:
        if (view.has(tag::Value)) {
            if (is_imposed_RO(view)) return add_node_object<integer_constant_value_type>(view);
            return add_node_object<integer_floating_value_type>(view);
        }
        if (view.has(tag::pValue) && view.has(tag::pValueCopy)) return add_node_object<integer_pValueCopy_type>(view);
        if (view.has(tag::pIndex)) return add_node_object<integer_pIndex_type>(view);
        if (view.has(tag::pValue)) return add_node_object<integer_pValue_type>(view);
        return;
    case tag::Float:
        if (view.has(tag::Value)) {
            if (is_imposed_RO(view)) return add_node_object<float_constant_value_type>(view);
            return add_node_object<float_floating_value_type>(view);
        }
        if (view.has(tag::pIndex)) return add_node_object<float_pIndex_type>(view);
        if (view.has(tag::pValue)) return add_node_object<float_pValue_type>(view);
        return;
    case tag::Boolean:
        if (view.has(tag::pValue)) return add_node_object<boolean_pValue_type>(view);
        if (view.has(tag::Value)) return add_node_object<boolean_Value_type>(view);
        return;
    case tag::Command:
        if (view.has(tag::Value)) return add_node_object<command_Value_type>(view);
        if (view.has(tag::pValue)) return add_node_object<command_pValue_type>(view);
        return;
    case tag::Enumeration:
        if (view.has(tag::Value)) return add_node_object<enumeration_Value_type>(view);
        if (view.has(tag::pValue)) return add_node_object<enumeration_pValue_type>(view);
        return;
    case tag::String:
        return add_node_object<string_type>(view);
    case tag::FloatReg:
        if (has_constant_address_and_length(view)) return add_node_object<float_reg_type_const_address>(view);
        add_node_object<float_reg_type_dyn>(view);
        break;
    case tag::IntReg:
        if (has_constant_address_and_length(view)) return add_node_object<int_reg_type_const_address>(view);
        add_node_object<int_reg_type_dyn>(view);
        break;
    case tag::Register:
        add_node_object<register_type>(view);
        break;
    case tag::MaskedIntReg:
        if (has_constant_address(view)) {
            add_node_object<masked_int_reg_type_const_address>(view);
        } else {
            add_node_object<masked_int_reg_type_dyn_address>(view);
        }
        break;
    case tag::StringReg:
        add_node_object<string_reg_type>(view);
        break;
    case tag::StructEntry:
        add_node_object<struct_entry_type>(view);
        break;
    case tag::Port:
        return add_node_object<port_device_type>(view);
    default:
        return;
    }
    // A swiss knife inside a register is a node of its own.
    add_embedded_swissknifes(view);
}

// Groups and structures are no nodes; the walk goes through them. They nest to any depth, so it keeps no stack.
void genicam_doc::create_nodes() {
    const pugi::xml_node root = xml.document_element();
    pugi::xml_node at = root.first_child();
    while (at) {
        const tag kind = at.type() == pugi::node_element ? tag_of(at.name()) : tag::none;
        const bool is_container = kind == tag::Group || kind == tag::StructReg;
        if (!is_container) create_node(at);
        if (is_container && at.first_child()) {
            at = at.first_child();
            continue;
        }
        while (!at.next_sibling() && at.parent() != root) at = at.parent();
        at = at.next_sibling();
    }
}

void genicam_doc::resolve_nodes() {
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        INode* const node = nodes[i];
        const auto& [element, begin, end] = views[i];
        node->as_eval()->resolve_references(element_view{element, std::span{seen}.subspan(begin, end - begin)});
        if (node->is_streamable()) streamable_nodes.push_back(node);
    }
    for (INode* const node : nodes) node->as_eval()->drop_repeated_links();
}

void genicam_doc::build(bool may_have_split_texts) {
    if (may_have_split_texts && xml.document_element().first_child()) join_all_texts(xml.document_element());
    // Most documents are flat: as many nodes as the root has children.
    std::size_t expected = 128;
    for (pugi::xml_node at = xml.document_element().first_child(); at; at = at.next_sibling()) ++expected;
    nodes.reserve(expected);
    views.reserve(expected);
    node_by_name.reserve(expected);
    create_nodes();
    resolve_nodes();
    last_struct.reset();
    decltype(seen){}.swap(seen); // gives the memory back
    decltype(views){}.swap(views);
}

const element_view* genicam_doc::struct_view(pugi::xml_node struct_reg) {
    if (struct_children_left == 0) return nullptr;
    if (!last_struct || last_struct->element() != struct_reg) {
        last_struct.emplace(struct_reg);
        const auto children = struct_reg.children();
        last_struct_children = static_cast<std::size_t>(std::distance(children.begin(), children.end()));
    }
    if (last_struct_children > struct_children_left) {
        struct_children_left = 0;
        return nullptr;
    }
    struct_children_left -= last_struct_children;
    return &*last_struct;
}

} // namespace GenICam::impl
