// From the model of a document to its text and the URL under which a port offers it.
#pragma once

#include <genicam_gen/model.h>

#include <pugixml.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace genicam_gen {

// An empty name stays empty; else a letter comes first and what is no ASCII letter, digit or '_' becomes '_'.
[[nodiscard]] std::string clean_name(std::string_view name);

// Clears the node, then names it "RegisterDescription" and gives it the document's attributes.
void write_root(const document_header& header, pugi::xml_node root);
// Clears the node, then writes the record in the element order of the GenApi 1.1 schema.
void write_node(const node& record, pugi::xml_node target);
// Root and records. Texts that are not UTF-8, as user names may be, come out with '?' for the broken bytes.
[[nodiscard]] pugi::xml_document write_document(const document& model);

// Ends soon after `most` bytes: a longer text is not whole. Each level of a document is a tab on every line of the
// levels below, which may make a text many times as long as the one it was read from.
[[nodiscard]] std::string serialize_to_string(const pugi::xml_document& xml, std::size_t most = SIZE_MAX);

// 64-bit FNV-1a.
[[nodiscard]] uint64_t text_hash(std::string_view text) noexcept;
// "local:NAME_HASH.xml;ADDRESS;LENGTH?SchemaVersion=1.1.0". The hash makes a changed text a new file name.
[[nodiscard]] std::string document_url(std::string_view module_name, std::string_view text, uint64_t address);

} // namespace genicam_gen
