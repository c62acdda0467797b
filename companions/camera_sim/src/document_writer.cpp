#include "document_writer.h"

#include <fmt/format.h>

namespace camera_sim {

namespace {

std::string escaped(std::string_view text) {
    std::string result;
    for (const char c : text) {
        if (c == '&')
            result += "&amp;";
        else if (c == '<')
            result += "&lt;";
        else if (c == '"')
            result += "&quot;";
        else
            result += c;
    }
    return result;
}

} // namespace

document_writer::document_writer(std::string_view vendor, std::string_view model) {
    document = fmt::format(R"(<?xml version="1.0" encoding="UTF-8"?>
<RegisterDescription ModelName="{}" VendorName="{}" ToolTip="Camera in software" StandardNameSpace="GEV"
  SchemaMajorVersion="1" SchemaMinorVersion="1" SchemaSubMinorVersion="0" MajorVersion="1" MinorVersion="0"
  SubMinorVersion="0" ProductGuid="6D0C7A30-5B6E-4F0A-9A63-0B4C3D0E5A11" VersionGuid="0E9A7F52-33C1-4B58-8D1B-6C2F7A94D3B0"
  xmlns="http://www.genicam.org/GenApi/Version_1_1" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"
  xsi:schemaLocation="http://www.genicam.org/GenApi/Version_1_1 http://www.genicam.org/GenApi/GenApiSchema_Version_1_1.xsd">
)",
                           escaped(model), escaped(vendor));
}

void document_writer::raw(std::string_view nodes) {
    document += nodes;
    document += '\n';
}

void document_writer::category(std::string_view name, const std::vector<std::string>& features) {
    std::string links;
    for (const auto& feature : features) links += fmt::format("  <pFeature>{}</pFeature>\n", feature);
    raw(fmt::format("<Category Name=\"{}\" NameSpace=\"Standard\">\n{}</Category>", name, links));
}

std::string document_writer::conditions(const node_options& options) const {
    std::string text;
    if (!options.p_is_available.empty()) text += fmt::format("<pIsAvailable>{}</pIsAvailable>", options.p_is_available);
    if (options.locked)
        text += "<pIsLocked>TLParamsLocked</pIsLocked>";
    else if (!options.p_is_locked.empty())
        text += fmt::format("<pIsLocked>{}</pIsLocked>", options.p_is_locked);
    return text;
}

std::string document_writer::limits(const node_options& options) const {
    std::string text;
    const bool limited = options.max != 0 || !options.p_max.empty();
    if (limited || options.min != 0) text += fmt::format("<Min>{}</Min>", options.min);
    if (!options.p_max.empty())
        text += fmt::format("<pMax>{}</pMax>", options.p_max);
    else if (options.max != 0)
        text += fmt::format("<Max>{}</Max>", options.max);
    if (options.increment != 0) text += fmt::format("<Inc>{}</Inc>", options.increment);
    if (!options.representation.empty())
        text += fmt::format("<Representation>{}</Representation>", options.representation);
    return text;
}

void document_writer::int_register(std::string_view name, uint32_t address, const node_options& options) {
    raw(fmt::format(R"(<IntReg Name="{}_Register"><Address>0x{:X}</Address><Length>{}</Length>
  <AccessMode>{}</AccessMode><pPort>Device</pPort>{}<Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>)",
                    name, address, options.length, options.access,
                    options.cachable && options.access != "WO" ? "" : "<Cachable>NoCache</Cachable>"));
}

void document_writer::integer(std::string_view name, uint32_t address, const node_options& options) {
    raw(fmt::format(R"(<Integer Name="{0}" NameSpace="Standard">{1}<pValue>{0}_Register</pValue>{2}</Integer>)", name,
                    conditions(options), limits(options)));
    int_register(name, address, options);
}

void document_writer::masked(std::string_view name, uint32_t address, int msb, int lsb, const node_options& options) {
    // Bit 0 is the most significant one of a big-endian register.
    raw(fmt::format(R"(<{0} Name="{1}" NameSpace="Standard">{2}<pValue>{1}_Register</pValue>{3}</{0}>
<MaskedIntReg Name="{1}_Register"><Address>0x{4:X}</Address><Length>4</Length><AccessMode>{5}</AccessMode>
  <pPort>Device</pPort>{6}<LSB>{7}</LSB><MSB>{8}</MSB><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></MaskedIntReg>)",
                    options.boolean ? "Boolean" : "Integer", name, conditions(options),
                    options.boolean ? "" : limits(options), address, options.access,
                    options.cachable ? "" : "<Cachable>NoCache</Cachable>", lsb, msb));
}

void document_writer::boolean(std::string_view name, uint32_t address, const node_options& options) {
    raw(fmt::format(R"(<Boolean Name="{0}" NameSpace="Standard">{1}<pValue>{0}_Register</pValue></Boolean>)", name,
                    conditions(options)));
    int_register(name, address, options);
}

void document_writer::floating(std::string_view name, uint32_t address, int length, reg::limits range,
                               std::string_view unit, const node_options& options) {
    raw(fmt::format(
        R"(<Float Name="{0}" NameSpace="Standard">{1}<pValue>{0}_Register</pValue><Min>{2}</Min><Max>{3}</Max>{4}</Float>
<FloatReg Name="{0}_Register"><Address>0x{5:X}</Address><Length>{6}</Length><AccessMode>{7}</AccessMode>
  <pPort>Device</pPort><Endianess>BigEndian</Endianess></FloatReg>)",
        name, conditions(options), range.min, range.max, unit.empty() ? "" : fmt::format("<Unit>{}</Unit>", unit),
        address, length, options.access));
}

void document_writer::text(std::string_view name, uint32_t address, int length, std::string_view access) {
    raw(fmt::format(R"(<StringReg Name="{}" NameSpace="Standard"><Address>0x{:X}</Address><Length>{}</Length>
  <AccessMode>{}</AccessMode><pPort>Device</pPort></StringReg>)",
                    name, address, length, access));
}

void document_writer::enumeration(std::string_view name, uint32_t address, const std::vector<reg::named_id>& entries,
                                  const node_options& options) {
    std::string lines;
    for (const auto& [entry, value] : entries)
        lines += fmt::format("  <EnumEntry Name=\"{}\"><Value>0x{:X}</Value></EnumEntry>\n", entry, value);
    raw(fmt::format(
        "<Enumeration Name=\"{0}\" NameSpace=\"Standard\">{1}\n{2}  <pValue>{0}_Register</pValue></Enumeration>", name,
        conditions(options), lines));
    int_register(name, address, options);
}

void document_writer::command(std::string_view name, uint32_t address) {
    raw(fmt::format(
        R"(<Command Name="{0}" NameSpace="Standard"><pValue>{0}_Register</pValue><CommandValue>1</CommandValue></Command>)",
        name));
    int_register(name, address, {.access = "WO"});
}

void document_writer::selected_index(std::string_view name, std::size_t max) {
    raw(fmt::format(
        R"(<Integer Name="{}_Value"><Visibility>Invisible</Visibility><Value>0</Value><Min>0</Min><Max>{}</Max></Integer>)",
        name, max));
}

std::string document_writer::finish() {
    document += "</RegisterDescription>\n";
    return std::move(document);
}

} // namespace camera_sim
