// The children of each element kind in the order that the GenApi 1.1 schema asks for, stated once for writing and
// reading. An archive has one operation per form of child; it gets the element name and the record's field.
#pragma once

#include <genicam_gen/model.h>

namespace genicam_gen {

template <class Record>
struct element_name;
#define ORV_ELEMENT(record)                                                                                            \
    template <>                                                                                                        \
    struct element_name<record> {                                                                                      \
        static constexpr const char* value = #record;                                                                  \
    }
ORV_ELEMENT(Boolean);
ORV_ELEMENT(Category);
ORV_ELEMENT(Command);
ORV_ELEMENT(Converter);
ORV_ELEMENT(Enumeration);
ORV_ELEMENT(EnumEntry);
ORV_ELEMENT(Float);
ORV_ELEMENT(FloatReg);
ORV_ELEMENT(IntConverter);
ORV_ELEMENT(Integer);
ORV_ELEMENT(IntReg);
ORV_ELEMENT(IntSwissKnife);
ORV_ELEMENT(MaskedIntReg);
ORV_ELEMENT(Port);
ORV_ELEMENT(Register);
ORV_ELEMENT(String);
ORV_ELEMENT(StringReg);
ORV_ELEMENT(SwissKnife);
#undef ORV_ELEMENT

template <class Archive, class Header>
void visit_header(Archive& a, Header& n) {
    a.attribute("Name", n.name);
    a.attribute("NameSpace", n.name_space);
    a.attribute("MergePriority", n.merge_priority);
    a.attribute("ExposeStatic", n.expose_static);
    a.extension(n.extension);
    a.child("ToolTip", n.tool_tip);
    a.child("Description", n.description);
    a.child("DisplayName", n.display_name);
    a.child("Visibility", n.visibility);
    a.child("DocuURL", n.docu_url);
    a.child("IsDeprecated", n.is_deprecated);
    a.bare_hex("EventID", n.event_id);
    a.child("pIsImplemented", n.p_is_implemented);
    a.child("pIsAvailable", n.p_is_available);
    a.child("pIsLocked", n.p_is_locked);
    a.child("pBlockPolling", n.p_block_polling);
    a.child("ImposedAccessMode", n.imposed_access_mode);
    a.list("pError", n.p_error);
    a.child("pAlias", n.p_alias);
    a.child("pCastAlias", n.p_cast_alias);
}

template <class Archive, class Inputs>
void visit_inputs(Archive& a, Inputs& n) {
    a.list("pInvalidator", n.p_invalidators);
    a.child("Streamable", n.streamable);
    a.named_list("pVariable", n.p_variables);
    a.named_list("Constant", n.constants);
    a.named_list("Expression", n.expressions);
}

template <class Archive, class Part>
void visit_register(Archive& a, Part& n) {
    a.child("Streamable", n.streamable);
    a.addresses(n);
    a.list("pAddress", n.p_addresses);
    a.indexes(n.p_indexes);
    a.value("Length", n.length);
    a.child("AccessMode", n.access_mode);
    a.port(n.p_port);
    a.child("Cachable", n.cachable);
    a.child("PollingTime", n.polling_time);
    a.list("pInvalidator", n.p_invalidators);
}

// Overloads on the record; `N` is the record or its const form.
template <class Record, class N>
concept record_of = std::same_as<std::remove_const_t<N>, Record>;

#define ORV_VISIT(record)                                                                                              \
    template <class Archive, class N>                                                                                  \
    requires record_of<record, N>                                                                                      \
    void visit_children(Archive& a, N& n)

ORV_VISIT(Boolean) {
    a.list("pInvalidator", n.p_invalidators);
    a.child("Streamable", n.streamable);
    a.value("Value", n.value);
    a.child("OnValue", n.on_value);
    a.child("OffValue", n.off_value);
    a.list("pSelected", n.p_selected);
}

ORV_VISIT(Category) {
    a.list("pInvalidator", n.p_invalidators);
    a.list("pFeature", n.p_features);
}

ORV_VISIT(Command) {
    a.list("pInvalidator", n.p_invalidators);
    a.value("Value", n.value);
    a.value("CommandValue", n.command_value);
    a.child("PollingTime", n.polling_time);
}

ORV_VISIT(Converter) {
    visit_inputs(a, n.inputs);
    a.child("FormulaTo", n.formula_to);
    a.child("FormulaFrom", n.formula_from);
    a.child("pValue", n.p_value);
    a.child("Unit", n.unit);
    a.child("Representation", n.representation);
    a.child("DisplayNotation", n.display_notation);
    a.child("DisplayPrecision", n.display_precision);
    a.child("Slope", n.slope);
    a.child("IsLinear", n.is_linear);
}

ORV_VISIT(IntConverter) {
    visit_inputs(a, n.inputs);
    a.child("FormulaTo", n.formula_to);
    a.child("FormulaFrom", n.formula_from);
    a.child("pValue", n.p_value);
    a.child("Unit", n.unit);
    a.child("Representation", n.representation);
    a.child("Slope", n.slope);
}

ORV_VISIT(SwissKnife) {
    visit_inputs(a, n.inputs);
    a.child("Formula", n.formula);
    a.child("Unit", n.unit);
    a.child("Representation", n.representation);
    a.child("DisplayNotation", n.display_notation);
    a.child("DisplayPrecision", n.display_precision);
}

ORV_VISIT(IntSwissKnife) {
    visit_inputs(a, n.inputs);
    a.child("Formula", n.formula);
    a.child("Unit", n.unit);
    a.child("Representation", n.representation);
}

ORV_VISIT(EnumEntry) {
    a.list("pInvalidator", n.p_invalidators);
    a.child("Value", n.value);
    a.child("NumericValue", n.numeric_value);
    a.child("Symbolic", n.symbolic);
    a.child("IsSelfClearing", n.is_self_clearing);
}

ORV_VISIT(Enumeration) {
    a.list("pInvalidator", n.p_invalidators);
    a.child("Streamable", n.streamable);
    a.entries(n.entries);
    a.value("Value", n.value);
    a.list("pSelected", n.p_selected);
    a.child("PollingTime", n.polling_time);
}

ORV_VISIT(Float) {
    a.list("pInvalidator", n.p_invalidators);
    a.child("Streamable", n.streamable);
    a.value("Value", n.value);
    a.value("Min", n.min);
    a.value("Max", n.max);
    a.value("Inc", n.inc);
    a.child("Unit", n.unit);
    a.child("Representation", n.representation);
    a.child("DisplayNotation", n.display_notation);
    a.child("DisplayPrecision", n.display_precision);
}

ORV_VISIT(Integer) {
    a.list("pInvalidator", n.p_invalidators);
    a.child("Streamable", n.streamable);
    a.copies("Value", n.p_value_copies_before, n.value, n.p_value_copies);
    a.value("Min", n.min);
    a.value("Max", n.max);
    a.value("Inc", n.inc);
    a.child("Unit", n.unit);
    a.child("Representation", n.representation);
    a.value_set("ValidValueSet", n.valid_value_set);
    a.list("pSelected", n.p_selected);
}

ORV_VISIT(String) {
    a.list("pInvalidator", n.p_invalidators);
    a.child("Streamable", n.streamable);
    a.value("Value", n.value);
}

ORV_VISIT(Port) {
    a.list("pInvalidator", n.p_invalidators);
    a.chunk_id("ChunkID", n.chunk_id);
    a.child("CacheChunkData", n.cache_chunk_data);
}

ORV_VISIT(Register) { visit_register(a, n.reg); }
ORV_VISIT(StringReg) { visit_register(a, n.reg); }

ORV_VISIT(IntReg) {
    visit_register(a, n.reg);
    a.child("Sign", n.sign);
    a.child("Endianess", n.endianess);
    a.child("Unit", n.unit);
    a.child("Representation", n.representation);
    a.list("pSelected", n.p_selected);
}

ORV_VISIT(FloatReg) {
    visit_register(a, n.reg);
    a.child("Endianess", n.endianess);
    a.child("Unit", n.unit);
    a.child("Representation", n.representation);
    a.child("DisplayNotation", n.display_notation);
    a.child("DisplayPrecision", n.display_precision);
}

ORV_VISIT(MaskedIntReg) {
    visit_register(a, n.reg);
    a.hex("LSB", n.lsb);
    a.hex("MSB", n.msb);
    a.hex("Bit", n.bit);
    a.child("Sign", n.sign);
    a.child("Endianess", n.endianess);
    a.child("Unit", n.unit);
    a.child("Representation", n.representation);
    a.list("pSelected", n.p_selected);
}
#undef ORV_VISIT

} // namespace genicam_gen
