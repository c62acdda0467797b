#include "exercise.h"

#include <GenICam/IGenICamDoc.h>
#include <math_parser/math_parser.h>

#include <bit>
#include <cstdlib>
#include <vector>

namespace fuzz {

namespace {

using namespace GenICam;

void promise(bool kept) {
    if (!kept) std::abort();
}

// Answers every address, some of them with an error; remembers nothing.
struct pattern_device final : IDevicePort {
    result<std::size_t> read(int64_t address, std::span<std::byte> data, unsigned) override {
        if ((address & 0x3F) == 0x3D) return fail(genicam_errc::timeout);
        for (std::size_t i = 0; i < data.size(); ++i)
            data[i] = static_cast<std::byte>((static_cast<uint64_t>(address) + i) % 3);
        return data.size();
    }
    std::error_code write(int64_t address, std::span<const std::byte>, unsigned) override {
        return (address & 0x3F) == 0x3E ? make_error_code(genicam_errc::timeout) : std::error_code{};
    }
};

template <class Number>
void exercise_number(Number& node, unsigned flags) {
    const auto value = node.get_val(flags);
    (void)node.get_min(flags);
    (void)node.get_max(flags);
    (void)node.get_inc(flags);
    (void)node.get_unit();
    (void)node.get_representation();
    (void)node.get_inc_mode();
    const auto set = node.get_valid_value_set(flags);
    if (set) promise(set->size() <= (std::size_t{1} << 20));
    (void)node.set_val(value ? *value : 1, flags);
    (void)node.set_val(2, flags | access_flags::no_range_check);
}

void exercise_node(INode& node, unsigned flags) {
    promise(node.as_eval() != nullptr);
    (void)node.get_access_mode();
    (void)node.is_implemented(flags);
    (void)node.is_available();
    (void)node.is_locked();
    (void)node.getVisibility();
    (void)node.get_alias();
    std::vector<INode*> dependents;
    node.get_dependent_nodes(dependents);
    for (const INode* dependent : dependents) promise(dependent != &node);
    switch (node.node_type()) {
    case NodeType_t::Integer:
        exercise_number(static_cast<IInteger&>(node), flags);
        break;
    case NodeType_t::Float: {
        auto& real = static_cast<IFloat&>(node);
        exercise_number(real, flags);
        (void)real.get_display_notation();
        (void)real.get_display_precision();
        break;
    }
    case NodeType_t::Boolean: {
        auto& boolean = static_cast<IBoolean&>(node);
        (void)boolean.get_val(flags);
        (void)boolean.set_val(true, flags);
        break;
    }
    case NodeType_t::Command: {
        auto& command = static_cast<ICommand&>(node);
        (void)command.execute(flags);
        (void)command.is_done(flags);
        break;
    }
    case NodeType_t::String: {
        auto& text = static_cast<IString&>(node);
        (void)text.get_val(flags);
        (void)text.get_max_length(flags);
        (void)text.set_val("text", flags);
        break;
    }
    case NodeType_t::Enumeration: {
        auto& enumeration = static_cast<IEnumeration&>(node);
        (void)enumeration.get_selected_entry(flags);
        (void)enumeration.find_nearest_entry(1.5);
        const auto entries = enumeration.get_entries();
        for (std::size_t i = 0; i < entries.size(); ++i) promise(entries[i]->get_index() == i);
        if (!entries.empty()) (void)enumeration.set_selected_entry(entries.back(), flags);
        break;
    }
    case NodeType_t::Register: {
        auto& bytes = static_cast<IRegister&>(node);
        std::byte data[8]{};
        (void)bytes.get_length(flags);
        (void)bytes.get_address(flags);
        (void)bytes.get(data, flags);
        (void)bytes.set(data, flags);
        break;
    }
    case NodeType_t::Category:
        (void)static_cast<ICategory&>(node).get_all_features();
        break;
    case NodeType_t::Port:
        (void)static_cast<IPort&>(node).get_chunk_id(flags);
        break;
    case NodeType_t::EnumEntry:
        std::abort(); // never in the document's list
    }
}

} // namespace

void exercise_document(std::span<const std::byte> text) {
    const auto doc = create_document(text);
    if (doc == nullptr) return;
    std::vector<INode*> nodes;
    doc->for_each_node([&](INode* node) {
        promise(node != nullptr);
        nodes.push_back(node);
    });
    constexpr std::size_t most_nodes = 48;
    if (nodes.size() > most_nodes) nodes.resize(most_nodes);

    pattern_device device;
    std::byte chunk[24]{};
    int bound = 0;
    for (INode* node : nodes) {
        if (auto* port = node_cast<IPort>(node)) {
            (void)(bound++ % 2 == 0 ? port->bind(&device, bind_flags::invalidate)
                                    : port->bind(std::span{chunk}, bind_flags::invalidate | bind_flags::copy));
        }
        node->set_on_invalidated([](INode& changed) { (void)changed.get_access_mode(); });
    }
    for (INode* node : nodes) exercise_node(*node, 0);
    for (INode* node : nodes) exercise_node(*node, access_flags::bypass_cache | access_flags::no_access_check);
    for (INode* node : nodes) {
        if (const auto id = node->get_event_id()) (void)doc->apply_event(*id, chunk);
    }
    (void)doc->get_document_info();
    (void)doc->get_root_features();
    (void)doc->get_streamable_nodes();
    for (INode* node : nodes) {
        if (auto* port = node_cast<IPort>(node)) port->unbind(bind_flags::invalidate | bind_flags::clear_cache);
    }
}

void exercise_formula(std::string_view text) {
    using math_parser::tValue;
    static const auto expression = math_parser::compile_formula("A + A", [](std::string_view) {
                                       return math_parser::lookup_func_result_t{uint64_t{1}};
                                   }).value();
    const auto lookup = [](std::string_view name) -> std::optional<math_parser::lookup_func_result_t> {
        if (name == "X") return &expression;
        if (name == "K") return tValue{-1.5};
        if (name.size() == 1 && name[0] >= 'A' && name[0] <= 'J') return static_cast<uint64_t>(name[0] - 'A' + 1);
        return std::nullopt;
    };
    math_parser::compile_report report;
    const auto program = math_parser::compile_formula(text, lookup, {}, &report);
    promise(report.offset <= text.size());
    promise(program.has_value() == (report.status <= math_parser::parse_status::end_of_text));
    if (!program) return;
    const math_parser::compiled_formula_data copy = *program;
    for (const bool integers : {true, false}) {
        auto fetch = [&](uint64_t id) -> result<tValue> {
            if (id == 10) return fail(genicam_errc::timeout);
            const auto number = static_cast<int64_t>(id) - 4;
            return integers ? tValue{number} : tValue{static_cast<double>(number) / 2};
        };
        const auto value = program->execute(fetch);
        const auto again = copy.execute(fetch);
        promise(value.has_value() == again.has_value());
        if (!value) {
            promise(value.error().code == again.error().code);
            continue;
        }
        promise(value->is_integer() == again->is_integer());
        promise(std::bit_cast<uint64_t>(value->to_double()) == std::bit_cast<uint64_t>(again->to_double()));
        (void)value->to_integer();
    }
}

} // namespace fuzz
