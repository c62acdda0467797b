#include "xml_readers.h"

#include "log.h"
#include "text_values.h"

namespace GenICam::impl {

namespace {

template <class E>
std::optional<E> read_word(pugi::xml_node element, std::string_view node,
                           log_format<std::string_view&, std::string_view> message) {
    if (!element) return std::nullopt;
    const std::string_view text = text_of(element);
    const auto word = parse_word<E>(text);
    if (!word) log<std::string_view&, std::string_view>(level_fault, message, node, std::string_view{text});
    return word;
}

} // namespace

Access_t get_element_AccessMode(pugi::xml_node element, std::string_view node) {
    return read_word<Access_t>(element, node, "{}. Invalid contents of 'AccessMode' node '{}'.").value_or(Access_t::RW);
}

Access_t get_element_ImposedAccessMode(pugi::xml_node element, std::string_view node) {
    return read_word<Access_t>(element, node, "{}. Invalid contents of 'ImposedAccessMode' node '{}'.")
        .value_or(Access_t::RW);
}

std::optional<CachingMode_t> get_element_Cachable(pugi::xml_node element, std::string_view node) {
    return read_word<CachingMode_t>(element, node, "{}. Invalid contents of 'Cachable' node '{}'.");
}

DisplayNotation_t get_element_DisplayNotation(pugi::xml_node element, std::string_view node) {
    return read_word<DisplayNotation_t>(element, node, "{}. Invalid contents '{}' of 'DisplayNotation' xml node.")
        .value_or(DisplayNotation_t::Automatic);
}

int64_t get_element_DisplayPrecision(pugi::xml_node element, std::string_view node) {
    constexpr int64_t standard = 6;
    if (!element) return standard;
    const auto value = parse_integer(text_of(element));
    if (!value) log(level_fault, "{}. Invalid contents '{}' of 'DisplayPrecision' xml node.", node, text_of(element));
    return value.value_or(standard);
}

Endianess_t get_element_Endianess(pugi::xml_node element, std::string_view node) {
    return read_word<Endianess_t>(element, node, "{}. Invalid contents of 'Endianess' node '{}'.")
        .value_or(Endianess_t::BigEndian);
}

FloatRepresentation_t get_element_FloatRepresentation(pugi::xml_node element, std::string_view node) {
    return read_word<FloatRepresentation_t>(element, node,
                                            "{}. Invalid contents '{}' of 'FloatRepresentation' xml node.")
        .value_or(FloatRepresentation_t::PureNumber);
}

IntRepresentation_t get_element_IntRepresentation(pugi::xml_node element, std::string_view node) {
    return read_word<IntRepresentation_t>(element, node, "{}. Invalid contents '{}' of 'IntRepresentation' xml node.).")
        .value_or(IntRepresentation_t::PureNumber);
}

bool get_element_IsLinear(pugi::xml_node element, std::string_view node) {
    return read_word<YesNo_t>(element, node, "{}. Invalid contents of 'IsLinear' node '{}'.") == YesNo_t::Yes;
}

std::optional<Sign_t> get_element_Sign(pugi::xml_node element, std::string_view node) {
    return read_word<Sign_t>(element, node, "{}. Invalid contents of 'Sign' node '{}'.");
}

Slope_t get_element_Slope(pugi::xml_node element, std::string_view node) {
    return read_word<Slope_t>(element, node, "{}. Invalid contents '{}' of 'Slope' xml node.")
        .value_or(Slope_t::Automatic);
}

} // namespace GenICam::impl
