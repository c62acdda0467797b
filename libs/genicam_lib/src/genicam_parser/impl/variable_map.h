// The variables of a formula: what its names mean while it is compiled, and where their values come from when it runs.
#pragma once

#include "eval_helper.h"
#include "key_positions.h"
#include "node_base.h"

#include <deque>
#include <string>

namespace GenICam::impl::converter {

inline constexpr uint64_t argument_id = 512;        // what a converter is given: FROM or TO
inline constexpr uint64_t first_variable_id = 1000; // plus the position in the table

// Exists only while a node resolves.
class formula_name_lookup {
public:
    explicit formula_name_lookup(bool is_swissknife_) : is_swissknife(is_swissknife_) { meanings.reserve(8); }

    void add_variable(std::string_view name, uint64_t id) { add(name, id); }
    void add_constant(std::string_view name, math_parser::tValue value) { add(name, value); }
    void add_formula(std::string_view name, math_parser::compiled_formula_data formula) {
        add(name, &formulas.emplace_back(std::move(formula)));
    }
    [[nodiscard]] bool contains(std::string_view name) const { return names.find(name).has_value(); }
    // For a converter "TO" and "FROM" are its argument and win over any variable; for a swiss knife they are ordinary.
    [[nodiscard]] std::optional<math_parser::lookup_func_result_t> find(std::string_view name) const;

private:
    void add(std::string_view name, math_parser::lookup_func_result_t meaning) {
        names.add(name);
        meanings.push_back(meaning);
    }

    key_positions<std::string_view> names;
    std::vector<math_parser::lookup_func_result_t> meanings; // by the positions of their names
    std::deque<math_parser::compiled_formula_data> formulas;
    bool is_swissknife;
};

// Constants of the element, and variables that name an entry of an enumeration, which are fixed now.
void build_formula_name_lookup(formula_name_lookup& lookup, const node_base_data& owner, const element_view& view,
                               bool is_integer);

// Nothing when the formula cannot be compiled; the compiler has logged why, and the owner's fault names it.
[[nodiscard]] std::optional<math_parser::compiled_formula_data> compile(node_base_data& owner, std::string_view text,
                                                                        const formula_name_lookup& lookup);

class variable_map_impl {
public:
    explicit variable_map_impl(bool is_integer_) noexcept : is_integer(is_integer_) {}

    // Adds the variables and expressions of the element to the lookup; their nodes become sources of the owner.
    void resolve_converter_references(formula_name_lookup& lookup, node_base_data& owner, const element_view& view);

    // Every variable is made a number of the node's kind: all integers, or all doubles. Literals keep their own.
    [[nodiscard]] result<math_parser::tValue> exec_formula(const math_parser::compiled_formula_data& formula,
                                                           unsigned flags, math_parser::tValue argument) const;
    [[nodiscard]] math_parser::tValue coerced(math_parser::tValue value) const noexcept {
        return is_integer ? math_parser::tValue{value.to_integer()} : math_parser::tValue{value.to_double()};
    }

private:
    enum class getter : uint8_t { value, min, max, inc };
    struct entry {
        INode* node;
        getter what;
        bool operator==(const entry&) const = default;
    };
    struct entry_hash {
        [[nodiscard]] std::size_t operator()(const entry& e) const noexcept {
            return std::hash<INode*>{}(e.node) + static_cast<std::size_t>(e.what);
        }
    };

    [[nodiscard]] static std::optional<entry> create_resulting_entry(const node_base_data& owner, INode& node,
                                                                     std::string_view variable_name);
    [[nodiscard]] result<math_parser::tValue> fetch(uint64_t id, math_parser::tValue argument, unsigned flags) const;

    arena_vector<entry, 2> entries;
    bool is_integer;
};

} // namespace GenICam::impl::converter
