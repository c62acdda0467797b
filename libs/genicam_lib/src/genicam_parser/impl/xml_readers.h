// Readers of a node's properties: a default when the element is absent, a message and the default when its text is bad.
// The first argument is the element itself, the second the node's name for the message.
#pragma once

#include <GenICam/types.h>

#include <pugixml.hpp>

#include <optional>
#include <string_view>

namespace GenICam::impl {

[[nodiscard]] Access_t get_element_AccessMode(pugi::xml_node element, std::string_view node);
[[nodiscard]] Access_t get_element_ImposedAccessMode(pugi::xml_node element, std::string_view node);
[[nodiscard]] std::optional<CachingMode_t> get_element_Cachable(pugi::xml_node element, std::string_view node);
[[nodiscard]] DisplayNotation_t get_element_DisplayNotation(pugi::xml_node element, std::string_view node);
[[nodiscard]] int64_t get_element_DisplayPrecision(pugi::xml_node element, std::string_view node);
[[nodiscard]] Endianess_t get_element_Endianess(pugi::xml_node element, std::string_view node);
[[nodiscard]] FloatRepresentation_t get_element_FloatRepresentation(pugi::xml_node element, std::string_view node);
[[nodiscard]] IntRepresentation_t get_element_IntRepresentation(pugi::xml_node element, std::string_view node);
[[nodiscard]] bool get_element_IsLinear(pugi::xml_node element, std::string_view node);
[[nodiscard]] std::optional<Sign_t> get_element_Sign(pugi::xml_node element, std::string_view node);
[[nodiscard]] Slope_t get_element_Slope(pugi::xml_node element, std::string_view node);

} // namespace GenICam::impl
