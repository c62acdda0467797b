#include "enum_words.h"
#include "field_order.h"

#include <genicam_gen/template_document.h>

#include <charconv>
#include <functional>
#include <string>

namespace genicam_gen {

namespace {

template <class T>
std::optional<T> parse_number(std::string_view text, int base = 10) {
    if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
        base = 16;
    }
    T value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return error == std::errc{} && end == text.data() + text.size() ? std::optional<T>{value} : std::nullopt;
}

// Reads what a record holds; children that it does not hold are ignored, texts that do not parse count as unset.
class read_archive {
public:
    explicit read_archive(pugi::xml_node source) : node(source) {}

    void attribute(const char* name, std::string& value) { value = node.attribute(name).value(); }
    template <class T>
    void attribute(const char* name, std::optional<T>& value) {
        if (const auto found = node.attribute(name)) assign(value, found.value());
    }
    void extension(std::vector<std::pair<std::string, std::string>>& pairs) {
        for (const auto& item : node.child("Extension").children()) {
            pairs.emplace_back(item.name(), item.text().get());
        }
    }
    template <class T>
    void child(const char* name, std::optional<T>& value) {
        if (const auto found = node.child(name)) assign(value, found.text().get());
    }
    void bare_hex(const char* name, std::optional<uint64_t>& value) {
        if (const auto found = node.child(name)) value = parse_number<uint64_t>(found.text().get(), 16);
    }
    void hex(const char* name, std::optional<uint32_t>& value) {
        if (const auto found = node.child(name)) value = parse_number<uint32_t>(found.text().get());
    }
    void list(const char* name, link_list& names) {
        for (const auto& item : node.children(name)) names.emplace_back(item.text().get());
    }
    template <class T>
    void value(const char* name, value_field<T>& field) {
        if (const auto link = node.child((std::string{"p"} + name).c_str())) {
            field = link_elem{link.text().get()};
        } else if (const auto constant = node.child(name)) {
            std::optional<T> parsed;
            if constexpr (std::same_as<T, bool>) {
                parsed = std::string_view{constant.text().get()} == "1";
            } else {
                assign(parsed, constant.text().get());
            }
            if (parsed) field = std::move(*parsed);
        }
    }
    void chunk_id(const char* name, value_field<uint64_t>& field) {
        if (const auto link = node.child((std::string{"p"} + name).c_str())) {
            field = link_elem{link.text().get()};
        } else if (const auto constant = node.child(name)) {
            if (const auto parsed = parse_number<uint64_t>(constant.text().get(), 16)) field = *parsed;
        }
    }
    void copies(const char* name, link_list& before, value_field<int64_t>& field, link_list& after) {
        value(name, field);
        bool value_seen = false;
        for (const auto& item : node.children()) {
            const std::string_view element = item.name();
            if (element == "Value" || element == "pValue") value_seen = true;
            if (element == "pValueCopy") (value_seen ? after : before).emplace_back(item.text().get());
        }
    }
    void value_set(const char* name, std::vector<int64_t>& values) {
        std::string_view text = node.child(name).text().get();
        while (!text.empty()) {
            const std::size_t end = std::min(text.find(';'), text.size());
            if (const auto parsed = parse_number<int64_t>(text.substr(0, end))) values.push_back(*parsed);
            text.remove_prefix(std::min(end + 1, text.size()));
        }
    }
    void named_list(const char* name, std::vector<named_text>& items) {
        for (const auto& item : node.children(name))
            items.push_back({item.attribute("Name").value(), item.text().get()});
    }
    template <class T>
    void named_list(const char* name, std::vector<named_number<T>>& items) {
        for (const auto& item : node.children(name)) {
            std::optional<T> parsed;
            assign(parsed, item.text().get());
            if (parsed) items.push_back({item.attribute("Name").value(), *parsed});
        }
    }
    void addresses(register_part& part) {
        for (const auto& item : node.children("Address")) {
            if (const auto parsed = parse_number<int64_t>(item.text().get())) part.addresses.push_back(*parsed);
        }
    }
    void indexes(std::vector<register_index>& items) {
        for (const auto& item : node.children("pIndex")) {
            register_index index{item.text().get(), std::nullopt, std::nullopt};
            if (const auto offset = item.attribute("Offset")) index.offset = parse_number<int64_t>(offset.value());
            if (const auto offset = item.attribute("pOffset")) index.p_offset = offset.value();
            items.push_back(std::move(index));
        }
    }
    void port(std::string& name) { name = node.child("pPort").text().get(); }
    void entries(std::vector<EnumEntry>& items) {
        for (const auto& item : node.children(element_name<EnumEntry>::value)) {
            read_archive archive{item};
            EnumEntry& entry = items.emplace_back();
            visit_header(archive, entry);
            visit_children(archive, entry);
        }
    }

private:
    static void assign(std::optional<std::string>& value, const char* text) { value = text; }
    static void assign(std::optional<bool>& value, const char* text) { value = std::string_view{text} == "Yes"; }
    static void assign(std::optional<int64_t>& value, const char* text) { value = parse_number<int64_t>(text); }
    static void assign(std::optional<double>& value, const char* text) {
        const std::string_view view = text;
        double parsed = 0;
        const auto [end, error] = std::from_chars(view.data(), view.data() + view.size(), parsed);
        if (error == std::errc{} && end == view.data() + view.size()) value = parsed;
    }
    template <word_enum E>
    static void assign(std::optional<E>& value, const char* text) {
        value = from_word<E>(text);
    }

    pugi::xml_node node;
};

// Document order, groups entered; stops at the first element for which `match` holds.
pugi::xml_node find_element(pugi::xml_node parent, const std::function<bool(const pugi::xml_node&)>& match) {
    for (const pugi::xml_node& element : parent.children()) {
        if (std::string_view{element.name()} == "Group") {
            if (const auto found = find_element(element, match)) return found;
        } else if (match(element)) {
            return element;
        }
    }
    return {};
}

} // namespace

template_document::template_document(const reference_document& text) {
    if (text.text != nullptr && xml.load_buffer(text.text, text.length)) root = xml.child("RegisterDescription");
}

template <class Record>
std::optional<Record> template_document::find(std::string_view name) const {
    const auto element = find_element(root, [&](const pugi::xml_node& candidate) {
        return std::string_view{candidate.name()} == element_name<Record>::value &&
               std::string_view{candidate.attribute("Name").value()} == name;
    });
    if (!element) return std::nullopt;
    Record record;
    read_archive archive{element};
    visit_header(archive, record);
    visit_children(archive, record);
    return record;
}

template std::optional<Boolean> template_document::find(std::string_view) const;
template std::optional<Category> template_document::find(std::string_view) const;
template std::optional<Command> template_document::find(std::string_view) const;
template std::optional<Converter> template_document::find(std::string_view) const;
template std::optional<Enumeration> template_document::find(std::string_view) const;
template std::optional<Float> template_document::find(std::string_view) const;
template std::optional<FloatReg> template_document::find(std::string_view) const;
template std::optional<IntConverter> template_document::find(std::string_view) const;
template std::optional<Integer> template_document::find(std::string_view) const;
template std::optional<IntReg> template_document::find(std::string_view) const;
template std::optional<IntSwissKnife> template_document::find(std::string_view) const;
template std::optional<MaskedIntReg> template_document::find(std::string_view) const;
template std::optional<Port> template_document::find(std::string_view) const;
template std::optional<Register> template_document::find(std::string_view) const;
template std::optional<String> template_document::find(std::string_view) const;
template std::optional<StringReg> template_document::find(std::string_view) const;
template std::optional<SwissKnife> template_document::find(std::string_view) const;

std::string_view template_document::find_category_of(std::string_view feature) const {
    const auto category = find_element(root, [&](const pugi::xml_node& candidate) {
        if (std::string_view{candidate.name()} != element_name<Category>::value) return false;
        for (const auto& item : candidate.children("pFeature")) {
            if (std::string_view{item.text().get()} == feature) return true;
        }
        return false;
    });
    return category.attribute("Name").value();
}

Category& template_document::category_on_demand(document& model, std::string_view name) const {
    if (Category* present = model.find_as<Category>(name)) return *present;
    if (auto referenced = find<Category>(name)) return model.add(std::move(*referenced));
    Category created;
    created.name = name;
    return model.add(std::move(created));
}

} // namespace genicam_gen
