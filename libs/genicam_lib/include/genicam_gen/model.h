// The model of a GenApi 1.1 document under construction: typed records, one per element kind.
//
// A record with nothing set but its name is legal; whatever is unset is left out of the text. Nothing is validated:
// documents are valid by construction, through the fixed element order of each record. Records and documents are
// plain values without locks: one thread builds and writes a document.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

namespace genicam_gen {

enum class standard_name_space { none, iidc, gev, cl, u3v, cxp, clhs };
enum class name_space { custom, standard };
enum class merge_priority { low, mid, high };
enum class visibility { beginner, expert, guru, invisible };
enum class access_mode { ro, wo, rw };
enum class sign { signed_, unsigned_ };
enum class endianess { little, big };
enum class cachable { no_cache, write_through, write_around };
enum class slope { increasing, decreasing, varying, automatic };
enum class representation { linear, logarithmic, boolean, pure_number, hex_number, ipv4_address, mac_address };
enum class display_notation { automatic, fixed, scientific };

// A reference to another node by name; written with the prefix "p" on the element name.
struct link_elem {
    std::string name;
    bool operator==(const link_elem&) const = default;
};

// Unset, a link, or a constant.
template <class T>
using value_field = std::variant<std::monostate, link_elem, T>;

using link_list = std::vector<std::string>;

struct node_header {
    std::string name;
    std::optional<genicam_gen::name_space> name_space;
    std::optional<genicam_gen::merge_priority> merge_priority;
    std::optional<bool> expose_static;
    std::vector<std::pair<std::string, std::string>> extension; // element name and text
    std::optional<std::string> tool_tip, description, display_name;
    std::optional<genicam_gen::visibility> visibility;
    std::optional<std::string> docu_url;
    std::optional<bool> is_deprecated;
    std::optional<uint64_t> event_id;
    std::optional<std::string> p_is_implemented, p_is_available, p_is_locked, p_block_polling;
    std::optional<access_mode> imposed_access_mode;
    link_list p_error;
    std::optional<std::string> p_alias, p_cast_alias;
    bool operator==(const node_header&) const = default;
};

struct named_text {
    std::string name;
    std::string text;
    bool operator==(const named_text&) const = default;
};

template <class T>
struct named_number {
    std::string name;
    T value{};
    bool operator==(const named_number&) const = default;
};

struct Boolean : node_header {
    link_list p_invalidators;
    std::optional<bool> streamable;
    value_field<bool> value;
    std::optional<int64_t> on_value, off_value;
    link_list p_selected;
    bool operator==(const Boolean&) const = default;
};

struct Category : node_header {
    link_list p_invalidators;
    link_list p_features;
    bool operator==(const Category&) const = default;
};

struct Command : node_header {
    link_list p_invalidators;
    value_field<int64_t> value;
    value_field<int64_t> command_value;
    std::optional<int64_t> polling_time;
    bool operator==(const Command&) const = default;
};

// What Converter, IntConverter, SwissKnife and IntSwissKnife have in common. T is double or int64_t.
template <class T>
struct formula_inputs {
    link_list p_invalidators;
    std::optional<bool> streamable;
    std::vector<named_text> p_variables;
    std::vector<named_number<T>> constants;
    std::vector<named_text> expressions;
    bool operator==(const formula_inputs&) const = default;
};

struct Converter : node_header {
    formula_inputs<double> inputs;
    std::optional<std::string> formula_to, formula_from, p_value;
    std::optional<std::string> unit;
    std::optional<genicam_gen::representation> representation;
    std::optional<genicam_gen::display_notation> display_notation;
    std::optional<int64_t> display_precision;
    std::optional<genicam_gen::slope> slope;
    std::optional<bool> is_linear;
    bool operator==(const Converter&) const = default;
};

struct IntConverter : node_header {
    formula_inputs<int64_t> inputs;
    std::optional<std::string> formula_to, formula_from, p_value;
    std::optional<std::string> unit;
    std::optional<genicam_gen::representation> representation;
    std::optional<genicam_gen::slope> slope;
    bool operator==(const IntConverter&) const = default;
};

struct SwissKnife : node_header {
    formula_inputs<double> inputs;
    std::optional<std::string> formula;
    std::optional<std::string> unit;
    std::optional<genicam_gen::representation> representation;
    std::optional<genicam_gen::display_notation> display_notation;
    std::optional<int64_t> display_precision;
    bool operator==(const SwissKnife&) const = default;
};

struct IntSwissKnife : node_header {
    formula_inputs<int64_t> inputs;
    std::optional<std::string> formula;
    std::optional<std::string> unit;
    std::optional<genicam_gen::representation> representation;
    bool operator==(const IntSwissKnife&) const = default;
};

struct EnumEntry : node_header {
    link_list p_invalidators;
    std::optional<int64_t> value;
    std::optional<double> numeric_value;
    std::optional<std::string> symbolic;
    std::optional<bool> is_self_clearing;
    bool operator==(const EnumEntry&) const = default;
};

struct Enumeration : node_header {
    link_list p_invalidators;
    std::optional<bool> streamable;
    std::vector<EnumEntry> entries;
    value_field<int64_t> value;
    link_list p_selected;
    std::optional<int64_t> polling_time;
    bool operator==(const Enumeration&) const = default;
};

struct Float : node_header {
    link_list p_invalidators;
    std::optional<bool> streamable;
    value_field<double> value, min, max, inc;
    std::optional<std::string> unit;
    std::optional<genicam_gen::representation> representation;
    std::optional<genicam_gen::display_notation> display_notation;
    std::optional<int64_t> display_precision;
    bool operator==(const Float&) const = default;
};

struct Integer : node_header {
    link_list p_invalidators;
    std::optional<bool> streamable;
    link_list p_value_copies_before; // normally empty
    value_field<int64_t> value;
    link_list p_value_copies;
    value_field<int64_t> min, max, inc;
    std::optional<std::string> unit;
    std::optional<genicam_gen::representation> representation;
    std::vector<int64_t> valid_value_set;
    link_list p_selected;
    bool operator==(const Integer&) const = default;
};

struct String : node_header {
    link_list p_invalidators;
    std::optional<bool> streamable;
    value_field<std::string> value;
    bool operator==(const String&) const = default;
};

struct Port : node_header {
    link_list p_invalidators;
    value_field<uint64_t> chunk_id;
    std::optional<bool> cache_chunk_data;
    bool operator==(const Port&) const = default;
};

struct register_index {
    std::string name;
    std::optional<int64_t> offset;
    std::optional<std::string> p_offset;
    bool operator==(const register_index&) const = default;
};

// What all register kinds have in common.
struct register_part {
    std::optional<bool> streamable;
    std::vector<int64_t> addresses;
    link_list p_addresses;
    std::vector<register_index> p_indexes;
    value_field<int64_t> length;
    std::optional<genicam_gen::access_mode> access_mode;
    std::string p_port; // "Device" is written when empty
    std::optional<genicam_gen::cachable> cachable;
    std::optional<int64_t> polling_time;
    link_list p_invalidators;
    bool operator==(const register_part&) const = default;
};

struct Register : node_header {
    register_part reg;
    bool operator==(const Register&) const = default;
};

struct StringReg : node_header {
    register_part reg;
    bool operator==(const StringReg&) const = default;
};

struct IntReg : node_header {
    register_part reg;
    std::optional<genicam_gen::sign> sign;
    std::optional<genicam_gen::endianess> endianess;
    std::optional<std::string> unit;
    std::optional<genicam_gen::representation> representation;
    link_list p_selected;
    bool operator==(const IntReg&) const = default;
};

struct FloatReg : node_header {
    register_part reg;
    std::optional<genicam_gen::endianess> endianess;
    std::optional<std::string> unit;
    std::optional<genicam_gen::representation> representation;
    std::optional<genicam_gen::display_notation> display_notation;
    std::optional<int64_t> display_precision;
    bool operator==(const FloatReg&) const = default;
};

struct MaskedIntReg : node_header {
    register_part reg;
    std::optional<uint32_t> lsb, msb; // either both of these
    std::optional<uint32_t> bit;      // or this
    std::optional<genicam_gen::sign> sign;
    std::optional<genicam_gen::endianess> endianess;
    std::optional<std::string> unit;
    std::optional<genicam_gen::representation> representation;
    link_list p_selected;
    bool operator==(const MaskedIntReg&) const = default;
};

using node = std::variant<Boolean, Category, Command, Converter, Enumeration, Float, FloatReg, IntConverter, Integer,
                          IntReg, IntSwissKnife, MaskedIntReg, Port, Register, String, StringReg, SwissKnife>;

// 36 characters; a text that is shorter or holds a NUL within them is written as zero bytes.
using guid_text = std::array<char, 36>;
[[nodiscard]] guid_text make_guid(std::string_view text);

struct document_header {
    std::string model_name = "M";
    std::string vendor_name = "V";
    std::string tool_tip;
    genicam_gen::standard_name_space standard_name_space = genicam_gen::standard_name_space::none;
    uint32_t major_version = 1;
    uint32_t minor_version = 0;
    uint32_t sub_minor_version = 0;
    guid_text product_guid = make_guid("0A3E0E66-BB08-4FA1-B58F-03215305DDFE");
    guid_text version_guid = make_guid("06C692DE-385C-4C1C-A997-C68F8CF841E7");
};

// Records in insertion order, found by name. References stay valid while the document lives.
class document {
public:
    document_header header;

    // A record of a name that exists already replaces the old one in its place.
    template <class Record>
    Record& add(Record record) {
        const auto found = index.find(record.name);
        if (found != index.end()) {
            *found->second = node{std::move(record)};
            return std::get<Record>(*found->second);
        }
        std::string name = record.name;
        node& added = records.emplace_back(std::move(record));
        index.emplace(std::move(name), &added);
        return std::get<Record>(added);
    }

    [[nodiscard]] node* find(std::string_view name) {
        const auto found = index.find(std::string{name});
        return found == index.end() ? nullptr : found->second;
    }
    template <class Record>
    [[nodiscard]] Record* find_as(std::string_view name) {
        node* found = find(name);
        return found == nullptr ? nullptr : std::get_if<Record>(found);
    }

    [[nodiscard]] const std::deque<node>& nodes() const noexcept { return records; }
    [[nodiscard]] std::deque<node>& nodes() noexcept { return records; }

private:
    std::deque<node> records;
    std::unordered_map<std::string, node*> index;
};

} // namespace genicam_gen
