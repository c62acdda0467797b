// The feature nodes users see. `flags` is always the word of access_flags; 0 is the ordinary access.
// Writes check access, then range, then hand the value on; success is the empty error code.
#pragma once

#include <GenICam/INode.h>

#include <cstddef>
#include <string>

namespace GenICam {

class IInteger : public INode {
public:
    static constexpr NodeType_t type = NodeType_t::Integer;

    [[nodiscard]] virtual std::error_code set_val(int64_t value, unsigned flags) = 0;
    [[nodiscard]] virtual result<int64_t> get_val(unsigned flags) const = 0;
    [[nodiscard]] virtual result<int64_t> get_min(unsigned flags) const = 0;
    [[nodiscard]] virtual result<int64_t> get_max(unsigned flags) const = 0;
    [[nodiscard]] virtual result<int64_t> get_inc(unsigned flags) const = 0;
    [[nodiscard]] virtual IntRepresentation_t get_representation() const = 0;
    [[nodiscard]] virtual std::string_view get_unit() const = 0;
    // The features this node selects.
    [[nodiscard]] virtual std::span<INode* const> get_selected() const noexcept = 0;
    [[nodiscard]] virtual IncMode_t get_inc_mode() const = 0;
    // Ascending values within min and max, a converter's in its target's order; not_implemented without a set in force.
    [[nodiscard]] virtual result<std::vector<int64_t>> get_valid_value_set(unsigned flags) const = 0;

protected:
    ~IInteger() = default;
};

class IFloat : public INode {
public:
    static constexpr NodeType_t type = NodeType_t::Float;

    // A value up to 1e-5 outside the limits is accepted as given; a converter over an integer writes that one's limit.
    [[nodiscard]] virtual std::error_code set_val(double value, unsigned flags) = 0;
    [[nodiscard]] virtual result<double> get_val(unsigned flags) const = 0;
    [[nodiscard]] virtual result<double> get_min(unsigned flags) const = 0;
    [[nodiscard]] virtual result<double> get_max(unsigned flags) const = 0;
    // not_implemented when the node has none.
    [[nodiscard]] virtual result<double> get_inc(unsigned flags) const = 0;
    [[nodiscard]] virtual FloatRepresentation_t get_representation() const = 0;
    [[nodiscard]] virtual std::string_view get_unit() const = 0;
    [[nodiscard]] virtual DisplayNotation_t get_display_notation() const = 0;
    [[nodiscard]] virtual int64_t get_display_precision() const = 0;
    [[nodiscard]] virtual IncMode_t get_inc_mode() const = 0;
    [[nodiscard]] virtual result<std::vector<double>> get_valid_value_set(unsigned flags) const = 0;

protected:
    ~IFloat() = default;
};

class IBoolean : public INode {
public:
    static constexpr NodeType_t type = NodeType_t::Boolean;

    [[nodiscard]] virtual std::span<INode* const> get_selected() const noexcept = 0;
    [[nodiscard]] virtual std::error_code set_val(bool value, unsigned flags) = 0;
    [[nodiscard]] virtual result<bool> get_val(unsigned flags) const = 0;

protected:
    ~IBoolean() = default;
};

class ICommand : public INode {
public:
    static constexpr NodeType_t type = NodeType_t::Command;

    [[nodiscard]] virtual std::span<INode* const> get_selected() const noexcept = 0;
    [[nodiscard]] virtual std::error_code execute(unsigned flags) = 0;
    // True when the command's register no longer holds the command value, and at once for a command that cannot be
    // read. A register that caches must be asked with bypass_cache to see the device's answer.
    [[nodiscard]] virtual result<bool> is_done(unsigned flags) const = 0;

protected:
    ~ICommand() = default;
};

class IString : public INode {
public:
    static constexpr NodeType_t type = NodeType_t::String;

    [[nodiscard]] virtual result<std::string> get_val(unsigned flags) const = 0;
    [[nodiscard]] virtual std::error_code set_val(std::string_view text, unsigned flags) = 0;
    // Bytes.
    [[nodiscard]] virtual result<uint64_t> get_max_length(unsigned flags) const = 0;

protected:
    ~IString() = default;
};

class ICategory : public INode {
public:
    static constexpr NodeType_t type = NodeType_t::Category;

    // The direct entries, in document order.
    [[nodiscard]] virtual std::span<INode* const> get_features() const noexcept = 0;
    // Depth first: categories are entered, every other feature is listed once.
    [[nodiscard]] virtual std::vector<INode*> get_all_features() const = 0;

protected:
    ~ICategory() = default;
};

// Entries belong to their enumeration; the document does not list them and does not find them by name.
class IEnumEntry : public INode {
public:
    static constexpr NodeType_t type = NodeType_t::EnumEntry;

    [[nodiscard]] virtual int64_t get_value() const noexcept = 0;
    [[nodiscard]] virtual std::size_t get_index() const noexcept = 0;
    [[nodiscard]] virtual std::optional<double> get_numeric_value() const noexcept = 0;
    [[nodiscard]] virtual bool is_self_clearing() const noexcept = 0;
    [[nodiscard]] virtual std::string_view get_symbolic() const noexcept = 0;

protected:
    ~IEnumEntry() = default;
};

class IEnumeration : public INode {
public:
    static constexpr NodeType_t type = NodeType_t::Enumeration;

    [[nodiscard]] virtual std::string_view get_unit() const = 0;
    [[nodiscard]] virtual std::span<INode* const> get_selected() const noexcept = 0;
    [[nodiscard]] virtual std::span<IEnumEntry* const> get_entries() const noexcept = 0;
    // The entry must be one of this enumeration.
    [[nodiscard]] virtual std::error_code set_selected_entry(IEnumEntry* entry, unsigned flags) = 0;
    [[nodiscard]] virtual result<IEnumEntry*> get_selected_entry(unsigned flags) const = 0;
    [[nodiscard]] virtual result<int64_t> get_val(unsigned flags) const = 0;
    // By numeric value, or by value where an entry has none; the first of equals; null without entries.
    [[nodiscard]] virtual IEnumEntry* find_nearest_entry(double value) const noexcept = 0;
    [[nodiscard]] virtual IEnumEntry* find_entry_by_value(int64_t value) const noexcept = 0;
    [[nodiscard]] virtual IEnumEntry* find_entry_by_name(std::string_view name) const noexcept = 0;

protected:
    ~IEnumeration() = default;
};

} // namespace GenICam
