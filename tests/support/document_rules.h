// What the standard asks of the references in a document: each resolves, to a node of a kind that may stand there.
#pragma once

#include <pugixml.hpp>

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace document_rules {

using kinds = std::set<std::string_view>;

inline const kinds integers{"Integer", "IntReg", "MaskedIntReg", "StructEntry", "IntConverter", "IntSwissKnife"};
inline const kinds numbers{"Integer",       "IntReg", "MaskedIntReg", "StructEntry", "IntConverter",
                           "IntSwissKnife", "Float",  "FloatReg",     "Converter",   "SwissKnife"};
inline const kinds conditions{"Integer",      "IntReg",        "MaskedIntReg", "StructEntry",
                              "IntConverter", "IntSwissKnife", "Boolean"};
inline const kinds variables{"Integer", "IntReg",   "MaskedIntReg", "StructEntry", "IntConverter", "IntSwissKnife",
                             "Float",   "FloatReg", "Converter",    "SwissKnife",  "Boolean",      "Enumeration"};
inline const kinds texts{"String", "StringReg"};
inline const kinds ports{"Port"};
inline const kinds anything{};      // but a port
inline const kinds nothing{"none"}; // no such reference

// The kinds a reference of this name may lead to, in a node of this kind.
inline const kinds& allowed(std::string_view reference, std::string_view parent) {
    const bool real = parent == "Float" || parent == "Converter" || parent == "SwissKnife";
    if (reference == "pPort") return ports;
    if (reference == "pIndex" || reference == "pAddress" || reference == "pLength" || reference == "pCommandValue")
        return integers;
    if (reference == "pIsImplemented" || reference == "pIsAvailable" || reference == "pIsLocked") return conditions;
    if (reference == "pMin" || reference == "pMax" || reference == "pInc") return real ? numbers : integers;
    if (reference == "pVariable") return variables;
    if (reference == "pValue" || reference == "pValueCopy" || reference == "pValueIndexed" ||
        reference == "pValueDefault")
        return parent == "String" ? texts : real ? numbers : integers;
    if (reference == "pFeature" || reference == "pSelected" || reference == "pInvalidator" || reference == "pAlias" ||
        reference == "pCastAlias")
        return anything;
    return nothing;
}

// One line for each rule broken.
inline std::vector<std::string> broken(const std::string& text) {
    std::vector<std::string> problems;
    pugi::xml_document xml;
    if (const auto parsed = xml.load_string(text.c_str()); !parsed) return {parsed.description()};
    std::map<std::string, std::string> kind_of;
    for (const auto& found : xml.select_nodes("//*[@Name][not(self::EnumEntry)][not(self::pVariable)]"
                                              "[not(self::Constant)][not(self::Expression)]")) {
        const std::string name = found.node().attribute("Name").value();
        if (!kind_of.emplace(name, found.node().name()).second) problems.push_back(name + " is there twice");
    }
    std::size_t references = 0;
    for (const auto& found : xml.select_nodes("//*[starts-with(local-name(), 'p')]")) {
        ++references;
        const std::string target = found.node().child_value();
        const std::string what = std::string{found.parent().name()} + ' ' + found.parent().attribute("Name").value() +
                                 ": " + found.node().name() + ' ' + target;
        const auto& may_be = allowed(found.node().name(), found.parent().name());
        const auto known = kind_of.find(target);
        if (known == kind_of.end())
            problems.push_back(what + " leads nowhere");
        else if (&may_be == &anything ? known->second == "Port" : !may_be.contains(known->second))
            problems.push_back(what + " is of kind " + known->second);
    }
    if (references == 0) problems.emplace_back("no reference at all");
    return problems;
}

} // namespace document_rules
