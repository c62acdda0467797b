// Records with every field set, or with a random choice of them.
#pragma once

#include <genicam_gen/model.h>

#include <random>

namespace records {

using namespace genicam_gen;

// How many values each has.
constexpr uint32_t count(sign) { return 2; }
constexpr uint32_t count(endianess) { return 2; }
constexpr uint32_t count(name_space) { return 2; }
constexpr uint32_t count(merge_priority) { return 3; }
constexpr uint32_t count(visibility) { return 4; }
constexpr uint32_t count(access_mode) { return 3; }
constexpr uint32_t count(cachable) { return 3; }
constexpr uint32_t count(slope) { return 4; }
constexpr uint32_t count(representation) { return 7; }
constexpr uint32_t count(display_notation) { return 3; }

// Decides for each optional field whether it is set, and draws its value.
class source {
public:
    explicit source(uint32_t seed, bool set_all = false) : random(seed), all(set_all) {}
    bool yes() { return all || random() % 2 == 0; }
    uint32_t number(uint32_t below) { return random() % below; }
    std::string text() { return "text " + std::to_string(number(1000)) + " <&\"' \xC3\xA4"; }
    std::string name() { return "N" + std::to_string(number(100000)); }
    int64_t integer() { return static_cast<int64_t>(random()) - (int64_t{1} << 31); }

    template <class T>
    T value() {
        if constexpr (std::is_enum_v<T>)
            return static_cast<T>(number(count(T{})));
        else if constexpr (std::is_same_v<T, bool>)
            return number(2) == 1;
        else if constexpr (std::is_same_v<T, double>)
            return static_cast<double>(integer()) / 1024.0;
        else if constexpr (std::is_same_v<T, std::string>)
            return text();
        else if constexpr (std::is_same_v<T, uint32_t>)
            return number(32);
        else
            return static_cast<T>(integer());
    }
    template <class T>
    void fill(std::optional<T>& field) {
        if (yes()) field = value<T>();
    }
    void fill(link_list& list) {
        if (yes()) list = {name(), name()};
    }
    template <class T>
    void fill(value_field<T>& field) {
        switch (all ? 2 : number(3)) {
        case 0:
            field = std::monostate{};
            break;
        case 1:
            field = link_elem{name()};
            break;
        default:
            field = value<T>();
        }
    }
    void set(auto&... fields) { (fill(fields), ...); }
    void texts(auto&... fields) { ((yes() ? void(fields = text()) : void()), ...); }
    void names(auto&... fields) { ((yes() ? void(fields = name()) : void()), ...); }

    void header(node_header& n) {
        n.name = name();
        set(n.name_space, n.merge_priority, n.expose_static);
        if (yes()) n.extension = {{"Vendor", "x"}};
        set(n.visibility, n.is_deprecated, n.event_id, n.imposed_access_mode, n.p_error);
        texts(n.tool_tip, n.description, n.display_name, n.docu_url);
        names(n.p_is_implemented, n.p_is_available, n.p_is_locked, n.p_block_polling, n.p_alias, n.p_cast_alias);
    }
    template <class T>
    void inputs(formula_inputs<T>& n) {
        set(n.p_invalidators, n.streamable);
        if (yes()) n.p_variables = {{"A", name()}, {"B", name()}};
        if (yes()) n.constants = {{"C", static_cast<T>(number(1000))}};
        if (yes()) n.expressions = {{"E", "A + 1 < B"}};
    }
    void reg(register_part& n) {
        set(n.streamable);
        n.addresses = {static_cast<int64_t>(number(65536)), -4}; // the writer adds one where there is none
        set(n.p_addresses);
        if (yes()) n.p_indexes = {{name(), 16, std::nullopt}, {name(), std::nullopt, name()}};
        set(n.length, n.access_mode);
        n.p_port = name();
        set(n.cachable, n.polling_time, n.p_invalidators);
    }
    // Each kind's own fields, after the header.
    void body(Boolean& n) { set(n.p_invalidators, n.streamable, n.value, n.on_value, n.off_value, n.p_selected); }
    void body(Category& n) { set(n.p_invalidators, n.p_features); }
    void body(Command& n) { set(n.p_invalidators, n.value, n.command_value, n.polling_time); }
    void body(Converter& n) {
        inputs(n.inputs);
        set(n.representation, n.display_notation, n.display_precision, n.slope, n.is_linear);
        texts(n.formula_to, n.formula_from, n.unit);
        names(n.p_value);
    }
    void body(IntConverter& n) {
        inputs(n.inputs);
        set(n.representation, n.slope);
        texts(n.formula_to, n.formula_from, n.unit);
        names(n.p_value);
    }
    void body(SwissKnife& n) {
        inputs(n.inputs);
        set(n.representation, n.display_notation, n.display_precision);
        texts(n.formula, n.unit);
    }
    void body(IntSwissKnife& n) {
        inputs(n.inputs);
        set(n.representation);
        texts(n.formula, n.unit);
    }
    void body(Enumeration& n) {
        set(n.p_invalidators, n.streamable);
        for (int i = 0; i < 2; ++i) {
            EnumEntry& entry = n.entries.emplace_back();
            header(entry);
            set(entry.p_invalidators, entry.value, entry.numeric_value, entry.is_self_clearing);
            texts(entry.symbolic);
        }
        set(n.value, n.p_selected, n.polling_time);
    }
    void body(Float& n) {
        set(n.p_invalidators, n.streamable, n.value, n.min, n.max, n.inc, n.representation, n.display_notation,
            n.display_precision);
        texts(n.unit);
    }
    void body(Integer& n) {
        set(n.p_invalidators, n.streamable, n.p_value_copies_before);
        // The two lists are told apart by the value between them.
        n.value = integer();
        set(n.p_value_copies, n.min, n.max, n.inc, n.representation);
        texts(n.unit);
        if (yes()) n.valid_value_set = {1, -5, 9};
        set(n.p_selected);
    }
    void body(String& n) { set(n.p_invalidators, n.streamable, n.value); }
    void body(Port& n) { set(n.p_invalidators, n.chunk_id, n.cache_chunk_data); }
    void body(Register& n) { reg(n.reg); }
    void body(StringReg& n) { reg(n.reg); }
    void body(IntReg& n) {
        reg(n.reg);
        set(n.sign, n.endianess, n.representation, n.p_selected);
        texts(n.unit);
    }
    void body(FloatReg& n) {
        reg(n.reg);
        set(n.endianess, n.representation, n.display_notation, n.display_precision);
        texts(n.unit);
    }
    void body(MaskedIntReg& n) {
        reg(n.reg);
        set(n.lsb, n.msb, n.bit, n.sign, n.endianess, n.representation, n.p_selected);
        texts(n.unit);
    }

    template <class Record>
    Record make() {
        Record record;
        header(record);
        body(record);
        return record;
    }

private:
    std::mt19937 random;
    bool all;
};

} // namespace records
