#include "enum_words.h"
#include "field_order.h"

#include <genicam_gen/writer.h>

#include <fmt/core.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>

namespace genicam_gen {

namespace {

constexpr const char* schema_name_space = "http://www.genicam.org/GenApi/Version_1_1";
constexpr const char* schema_location =
    "http://www.genicam.org/GenApi/Version_1_1 http://www.genicam.org/GenApi/GenApiSchema_Version_1_1.xsd";
constexpr const char* instance_name_space = "http://www.w3.org/2001/XMLSchema-instance";

bool is_ascii_letter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

// The number of bytes of the well-formed UTF-8 sequence at the start that XML can carry, or 0.
std::size_t xml_character_length(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    if (first < 0x80) return first >= 0x20 || first == '\t' || first == '\n' || first == '\r' ? 1 : 0;
    const std::size_t length = first >= 0xF0 && first < 0xF5 ? 4 : first >= 0xE0 ? 3 : first >= 0xC2 ? 2 : 0;
    if (length == 0 || first >= 0xF5 || text.size() < length) return 0;
    uint32_t code = first & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
        code = (code << 6) | (byte(i) & 0x3F);
    }
    const bool overlong = (length == 3 && code < 0x800) || (length == 4 && (code < 0x10000 || code > 0x10FFFF));
    const bool unusable = (code >= 0xD800 && code <= 0xDFFF) || code == 0xFFFE || code == 0xFFFF;
    return overlong || unusable ? 0 : length;
}

std::string xml_text(std::string_view text) {
    std::string safe;
    safe.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = xml_character_length(text);
        if (length == 0) {
            safe += '?';
        } else {
            safe += text.substr(0, length);
        }
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return safe;
}

std::string text_of(const std::string& value) { return xml_text(value); }
std::string text_of(bool value) { return value ? "Yes" : "No"; }
std::string text_of(int64_t value) { return fmt::format("{}", value); }
// By no locale: a host's may have a comma where documents have a point. So many digits give the same number again.
std::string text_of(double value) {
    char text[32];
    const auto end = std::to_chars(std::begin(text), std::end(text), value, std::chars_format::general, 17).ptr;
    return {text, end};
}
template <word_enum E>
std::string text_of(E value) {
    return to_word(value);
}

class write_archive {
public:
    explicit write_archive(pugi::xml_node target) : node(target) {}

    void attribute(const char* name, const std::string& value) {
        node.append_attribute(name).set_value(xml_text(value).c_str());
    }
    template <class T>
    void attribute(const char* name, const std::optional<T>& value) {
        if (value) node.append_attribute(name).set_value(text_of(*value).c_str());
    }
    void extension(const std::vector<std::pair<std::string, std::string>>& pairs) {
        if (pairs.empty()) return;
        pugi::xml_node parent = node.append_child("Extension");
        for (const auto& [name, text] : pairs) parent.append_child(name.c_str()).text().set(xml_text(text).c_str());
    }
    template <class T>
    void child(const char* name, const std::optional<T>& value) {
        if (value) add(name, text_of(*value));
    }
    void bare_hex(const char* name, const std::optional<uint64_t>& value) {
        if (value) add(name, fmt::format("{:X}", *value));
    }
    void hex(const char* name, const std::optional<uint32_t>& value) {
        if (value) add(name, fmt::format("0x{:X}", *value));
    }
    void list(const char* name, const link_list& names) {
        for (const std::string& text : names) add(name, xml_text(text));
    }
    template <class T>
    void value(const char* name, const value_field<T>& field) {
        if (const auto* link = std::get_if<link_elem>(&field)) {
            add(link_name(name).c_str(), xml_text(link->name));
        } else if (const auto* constant = std::get_if<T>(&field)) {
            if constexpr (std::same_as<T, bool>) {
                add(name, *constant ? "1" : "0"); // unlike the Yes/No elements
            } else {
                add(name, text_of(*constant));
            }
        }
    }
    void chunk_id(const char* name, const value_field<uint64_t>& field) {
        if (const auto* link = std::get_if<link_elem>(&field)) add(link_name(name).c_str(), xml_text(link->name));
        if (const auto* constant = std::get_if<uint64_t>(&field)) add(name, fmt::format("{:X}", *constant));
    }
    void copies(const char* name, const link_list& before, const value_field<int64_t>& field, const link_list& after) {
        list("pValueCopy", before);
        value(name, field);
        list("pValueCopy", after);
    }
    void value_set(const char* name, const std::vector<int64_t>& values) {
        if (values.empty()) return;
        std::string joined;
        for (const int64_t value : values) joined += fmt::format("{}{}", joined.empty() ? "" : ";", value);
        add(name, joined);
    }
    void named_list(const char* name, const std::vector<named_text>& items) {
        for (const auto& item : items) add_named(name, item.name).text().set(xml_text(item.text).c_str());
    }
    template <class T>
    void named_list(const char* name, const std::vector<named_number<T>>& items) {
        for (const auto& item : items) add_named(name, item.name).text().set(text_of(item.value).c_str());
    }
    void addresses(const register_part& part) {
        for (const int64_t address : part.addresses) add("Address", offset_text(address));
        if (part.addresses.empty() && part.p_addresses.empty() && part.p_indexes.empty()) add("Address", "0x0");
    }
    void indexes(const std::vector<register_index>& items) {
        for (const auto& item : items) {
            pugi::xml_node child_node = node.append_child("pIndex");
            if (item.offset) child_node.append_attribute("Offset").set_value(offset_text(*item.offset).c_str());
            if (item.p_offset) child_node.append_attribute("pOffset").set_value(item.p_offset->c_str());
            child_node.text().set(item.name.c_str());
        }
    }
    void port(const std::string& name) { add("pPort", name.empty() ? "Device" : xml_text(name)); }
    void entries(const std::vector<EnumEntry>& items) {
        for (const EnumEntry& entry : items) {
            write_archive archive{node.append_child(element_name<EnumEntry>::value)};
            visit_header(archive, entry);
            visit_children(archive, entry);
        }
    }

private:
    static std::string link_name(const char* name) { return std::string{"p"} + name; }
    static std::string offset_text(int64_t value) {
        return value >= 0 ? fmt::format("0x{:X}", value) : fmt::format("{}", value);
    }
    void add(const char* name, const std::string& text) { node.append_child(name).text().set(text.c_str()); }
    pugi::xml_node add_named(const char* name, const std::string& key) {
        pugi::xml_node child_node = node.append_child(name);
        child_node.append_attribute("Name").set_value(xml_text(key).c_str());
        return child_node;
    }

    pugi::xml_node node;
};

class xml_string_writer final : public pugi::xml_writer {
public:
    explicit xml_string_writer(std::size_t bytes) : most(bytes) {}
    void write(const void* data, std::size_t size) override {
        if (text.size() <= most) text.append(static_cast<const char*>(data), size);
    }
    std::string text;

private:
    std::size_t most;
};

void clear(pugi::xml_node target) {
    target.remove_attributes();
    target.remove_children();
}

} // namespace

guid_text make_guid(std::string_view text) {
    guid_text guid{};
    if (text.size() < guid.size() || text.substr(0, guid.size()).find('\0') != text.npos) return guid;
    std::copy_n(text.begin(), guid.size(), guid.begin());
    return guid;
}

std::string clean_name(std::string_view name) {
    if (name.empty()) return {};
    std::string cleaned = is_ascii_letter(name.front()) ? "" : "z";
    for (const char c : name) cleaned += is_ascii_letter(c) || (c >= '0' && c <= '9') || c == '_' ? c : '_';
    return cleaned;
}

void write_root(const document_header& header, pugi::xml_node root) {
    clear(root);
    root.set_name("RegisterDescription");
    const auto add = [&](const char* name, const std::string& value) {
        root.append_attribute(name).set_value(value.c_str());
    };
    add("ModelName", clean_name(header.model_name));
    add("VendorName", clean_name(header.vendor_name));
    if (!header.tool_tip.empty()) add("ToolTip", xml_text(header.tool_tip));
    add("StandardNameSpace", to_word(header.standard_name_space));
    add("SchemaMajorVersion", "1");
    add("SchemaMinorVersion", "1");
    add("SchemaSubMinorVersion", "0");
    add("MajorVersion", fmt::format("{}", header.major_version));
    add("MinorVersion", fmt::format("{}", header.minor_version));
    add("SubMinorVersion", fmt::format("{}", header.sub_minor_version));
    const auto guid = [](const guid_text& text) { return std::string{text.data(), strnlen(text.data(), text.size())}; };
    add("ProductGuid", guid(header.product_guid));
    add("VersionGuid", guid(header.version_guid));
    add("xmlns", schema_name_space);
    add("xmlns:xsi", instance_name_space);
    add("xsi:schemaLocation", schema_location);
}

void write_node(const node& record, pugi::xml_node target) {
    clear(target);
    std::visit(
        [&](const auto& typed) {
            target.set_name(element_name<std::remove_cvref_t<decltype(typed)>>::value);
            write_archive archive{target};
            visit_header(archive, typed);
            visit_children(archive, typed);
        },
        record);
}

pugi::xml_document write_document(const document& model) {
    pugi::xml_document xml;
    pugi::xml_node root = xml.append_child("RegisterDescription");
    write_root(model.header, root);
    for (const node& record : model.nodes()) write_node(record, root.append_child(pugi::node_element));
    return xml;
}

std::string serialize_to_string(const pugi::xml_document& xml, std::size_t most) {
    xml_string_writer writer{most};
    xml.save(writer, "\t", pugi::format_indent | pugi::format_no_declaration, pugi::encoding_utf8);
    return std::move(writer.text);
}

uint64_t text_hash(std::string_view text) noexcept {
    uint64_t hash = 0xCBF29CE484222325U;
    for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3U;
    return hash;
}

std::string document_url(std::string_view module_name, std::string_view text, uint64_t address) {
    return fmt::format("local:{}_{:X}.xml;{:X};{:X}?SchemaVersion=1.1.0", module_name, text_hash(text), address,
                       text.size());
}

} // namespace genicam_gen
