// Records with every field set, or with a random choice of them.
#pragma once

#include <genicam_gen/model.h>

#include <random>

namespace records {

using namespace genicam_gen;

// Decides for each optional field whether it is set, and draws its value.
class source {
public:
    explicit source(uint32_t seed, bool set_all = false) : random(seed), all(set_all) {}
    bool yes() { return all || random() % 2 == 0; }
    uint32_t number(uint32_t below) { return random() % below; }
    std::string text() { return "text " + std::to_string(number(1000)) + " <&\"' \xC3\xA4"; }
    std::string name() { return "N" + std::to_string(number(100000)); }
    int64_t integer() { return static_cast<int64_t>(random()) - (int64_t{1} << 31); }

    void fill(std::optional<bool>& field) {
        if (yes()) field = number(2) == 1;
    }
    void fill(std::optional<int64_t>& field) {
        if (yes()) field = integer();
    }
    void fill(std::optional<uint64_t>& field) {
        if (yes()) field = random();
    }
    void fill(std::optional<uint32_t>& field) {
        if (yes()) field = number(32);
    }
    void fill(std::optional<double>& field) {
        if (yes()) field = static_cast<double>(integer()) / 1024.0;
    }
    void fill_text(std::optional<std::string>& field) {
        if (yes()) field = text();
    }
    void fill_name(std::optional<std::string>& field) {
        if (yes()) field = name();
    }
    template <class E>
    void fill_enum(std::optional<E>& field, uint32_t count) {
        if (yes()) field = static_cast<E>(number(count));
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
            if constexpr (std::is_same_v<T, bool>)
                field = number(2) == 1;
            else if constexpr (std::is_same_v<T, double>)
                field = static_cast<double>(integer()) / 64.0;
            else if constexpr (std::is_same_v<T, std::string>)
                field = text();
            else
                field = static_cast<T>(number(100000));
        }
    }

    void header(node_header& n) {
        n.name = name();
        fill_enum(n.name_space, 2);
        if (yes()) n.merge_priority = static_cast<int64_t>(number(3)) - 1;
        fill(n.expose_static);
        if (yes()) n.extension = {{"Vendor", "x"}};
        fill_text(n.tool_tip);
        fill_text(n.description);
        fill_text(n.display_name);
        fill_enum(n.visibility, 4);
        fill_text(n.docu_url);
        fill(n.is_deprecated);
        fill(n.event_id);
        fill_name(n.p_is_implemented);
        fill_name(n.p_is_available);
        fill_name(n.p_is_locked);
        fill_name(n.p_block_polling);
        fill_enum(n.imposed_access_mode, 3);
        fill(n.p_error);
        fill_name(n.p_alias);
        fill_name(n.p_cast_alias);
    }
    template <class T>
    void inputs(formula_inputs<T>& n) {
        fill(n.p_invalidators);
        fill(n.streamable);
        if (yes()) n.p_variables = {{"A", name()}, {"B", name()}};
        if (yes()) n.constants = {{"C", static_cast<T>(number(1000))}};
        if (yes()) n.expressions = {{"E", "A + 1 < B"}};
    }
    void reg(register_part& n) {
        fill(n.streamable);
        n.addresses = {static_cast<int64_t>(number(65536)), -4}; // the writer adds one where there is none
        fill(n.p_addresses);
        if (yes()) n.p_indexes = {{name(), 16, std::nullopt}, {name(), std::nullopt, name()}};
        fill(n.length);
        fill_enum(n.access_mode, 3);
        n.p_port = name();
        fill_enum(n.cachable, 3);
        fill(n.polling_time);
        fill(n.p_invalidators);
    }
    // Each kind's own fields, after the header.
    void body(Boolean& n) {
        fill(n.p_invalidators);
        fill(n.streamable);
        fill(n.value);
        fill(n.on_value);
        fill(n.off_value);
        fill(n.p_selected);
    }
    void body(Category& n) {
        fill(n.p_invalidators);
        fill(n.p_features);
    }
    void body(Command& n) {
        fill(n.p_invalidators);
        fill(n.value);
        fill(n.command_value);
        fill(n.polling_time);
    }
    void body(Converter& n) {
        inputs(n.inputs);
        fill_text(n.formula_to);
        fill_text(n.formula_from);
        fill_name(n.p_value);
        fill_text(n.unit);
        fill_enum(n.representation, 7);
        fill_enum(n.display_notation, 3);
        fill(n.display_precision);
        fill_enum(n.slope, 4);
        fill(n.is_linear);
    }
    void body(IntConverter& n) {
        inputs(n.inputs);
        fill_text(n.formula_to);
        fill_text(n.formula_from);
        fill_name(n.p_value);
        fill_text(n.unit);
        fill_enum(n.representation, 7);
        fill_enum(n.slope, 4);
    }
    void body(SwissKnife& n) {
        inputs(n.inputs);
        fill_text(n.formula);
        fill_text(n.unit);
        fill_enum(n.representation, 7);
        fill_enum(n.display_notation, 3);
        fill(n.display_precision);
    }
    void body(IntSwissKnife& n) {
        inputs(n.inputs);
        fill_text(n.formula);
        fill_text(n.unit);
        fill_enum(n.representation, 7);
    }
    void body(Enumeration& n) {
        fill(n.p_invalidators);
        fill(n.streamable);
        for (int i = 0; i < 2; ++i) {
            EnumEntry& entry = n.entries.emplace_back();
            header(entry);
            fill(entry.p_invalidators);
            fill(entry.value);
            fill(entry.numeric_value);
            fill_text(entry.symbolic);
            fill(entry.is_self_clearing);
        }
        fill(n.value);
        fill(n.p_selected);
        fill(n.polling_time);
    }
    void body(Float& n) {
        fill(n.p_invalidators);
        fill(n.streamable);
        fill(n.value);
        fill(n.min);
        fill(n.max);
        fill(n.inc);
        fill_text(n.unit);
        fill_enum(n.representation, 7);
        fill_enum(n.display_notation, 3);
        fill(n.display_precision);
    }
    void body(Integer& n) {
        fill(n.p_invalidators);
        fill(n.streamable);
        fill(n.p_value_copies_before);
        // The two lists are told apart by the value between them.
        n.value = integer();
        fill(n.p_value_copies);
        fill(n.min);
        fill(n.max);
        fill(n.inc);
        fill_text(n.unit);
        fill_enum(n.representation, 7);
        if (yes()) n.valid_value_set = {1, -5, 9};
        fill(n.p_selected);
    }
    void body(String& n) {
        fill(n.p_invalidators);
        fill(n.streamable);
        fill(n.value);
    }
    void body(Port& n) {
        fill(n.p_invalidators);
        fill(n.chunk_id);
        fill(n.cache_chunk_data);
    }
    void body(Register& n) { reg(n.reg); }
    void body(StringReg& n) { reg(n.reg); }
    void body(IntReg& n) {
        reg(n.reg);
        fill_enum(n.sign, 2);
        fill_enum(n.endianess, 2);
        fill_text(n.unit);
        fill_enum(n.representation, 7);
        fill(n.p_selected);
    }
    void body(FloatReg& n) {
        reg(n.reg);
        fill_enum(n.endianess, 2);
        fill_text(n.unit);
        fill_enum(n.representation, 7);
        fill_enum(n.display_notation, 3);
        fill(n.display_precision);
    }
    void body(MaskedIntReg& n) {
        reg(n.reg);
        fill(n.lsb);
        fill(n.msb);
        fill(n.bit);
        fill_enum(n.sign, 2);
        fill_enum(n.endianess, 2);
        fill_text(n.unit);
        fill_enum(n.representation, 7);
        fill(n.p_selected);
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
