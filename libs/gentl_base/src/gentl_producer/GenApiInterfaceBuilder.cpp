#include <genicam_gen/writer.h>
#include <gentl_producer/GenApiInterfaceBuilder.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <system_error>
#include <utility>

namespace GenTL::Producer::Util {

using genicam_gen::access_mode;
using genicam_gen::link_elem;

namespace {

std::string register_name_of(std::string_view feature, std::string_view given) {
    return given.empty() ? std::string{feature} + "Register" : std::string{given};
}

void append_once(genicam_gen::link_list& list, std::string_view name) {
    if (std::ranges::find(list, name) == list.end()) list.emplace_back(name);
}

} // namespace

GenApiInterfaceBuilder::GenApiInterfaceBuilder(RegisterMap& map, uint64_t& next,
                                               const genicam_gen::reference_document& reference_text,
                                               DocumentIdentity identity, std::string port_name)
    : register_map(map), next_address(next), reference(reference_text), port(std::move(port_name)) {
    model.header.vendor_name = std::move(identity.vendor);
    model.header.model_name = std::move(identity.model);
    model.header.tool_tip = std::move(identity.tooltip);
    static_cast<void>(reference.category_on_demand(model, "Root"));
    static_cast<void>(feature<genicam_gen::Port>(port));
}

template <class Record>
Record& GenApiInterfaceBuilder::feature(std::string_view name) {
    if (auto known = reference.find<Record>(name)) {
        Record& added = model.add(std::move(*known));
        put_into_category(name);
        return added;
    }
    Record created;
    created.name = name;
    created.name_space = genicam_gen::name_space::standard;
    return model.add(std::move(created));
}

void GenApiInterfaceBuilder::put_into_category(std::string_view feature_name) {
    const std::string_view category = reference.find_category_of(feature_name);
    // The category's own list, in the reference's order, holds the feature already.
    if (!category.empty()) static_cast<void>(reference.category_on_demand(model, category));
}

uint64_t GenApiInterfaceBuilder::map_register(size_t length, std::unique_ptr<RegisterMapEntry> entry, bool exact) {
    const uint64_t address = next_address;
    register_map.add(address, length, std::move(entry), exact);
    next_address += (length + 3) / 4 * 4;
    return address;
}

template <class Record>
Record& GenApiInterfaceBuilder::add_register(std::string_view name, size_t length, access_mode access,
                                             uint64_t address) {
    Record record;
    record.name = name;
    record.visibility = genicam_gen::visibility::invisible;
    record.reg.addresses = {static_cast<int64_t>(address)};
    record.reg.length = static_cast<int64_t>(length);
    record.reg.access_mode = access;
    record.reg.p_port = port;
    // Values change behind the consumer's back, and a read costs a function call.
    record.reg.cachable = genicam_gen::cachable::no_cache;
    return model.add(std::move(record));
}

genicam_gen::IntReg& GenApiInterfaceBuilder::add_int_reg(std::string_view name, size_t length, access_mode access,
                                                         std::unique_ptr<RegisterMapEntry> entry, bool exact) {
    auto& reg = add_register<genicam_gen::IntReg>(name, length, access, map_register(length, std::move(entry), exact));
    reg.sign = genicam_gen::sign::unsigned_;
    reg.endianess = genicam_gen::endianess::little;
    return reg;
}

genicam_gen::MaskedIntReg& GenApiInterfaceBuilder::add_mask_int_reg(std::string_view name, size_t length, uint32_t lsb,
                                                                    uint32_t msb, access_mode access,
                                                                    std::unique_ptr<RegisterMapEntry> entry) {
    auto& reg =
        add_register<genicam_gen::MaskedIntReg>(name, length, access, map_register(length, std::move(entry), true));
    reg.lsb = lsb;
    reg.msb = msb;
    reg.sign = genicam_gen::sign::unsigned_;
    reg.endianess = genicam_gen::endianess::little;
    return reg;
}

genicam_gen::StringReg& GenApiInterfaceBuilder::add_string_reg(std::string_view name, size_t length, access_mode access,
                                                               std::unique_ptr<RegisterMapEntry> entry) {
    return add_register<genicam_gen::StringReg>(name, length, access, map_register(length, std::move(entry), false));
}

genicam_gen::Command& GenApiInterfaceBuilder::add_command(std::string_view name, std::function<Error()> command,
                                                          std::string_view register_name) {
    const std::string reg = register_name_of(name, register_name);
    auto& node = feature<genicam_gen::Command>(name);
    node.value = link_elem{reg};
    node.command_value = 1;
    add_int_reg(reg, 4, access_mode::wo, make_command_entry(std::move(command)));
    return node;
}

template <class T>
genicam_gen::Integer& GenApiInterfaceBuilder::add_integer(std::string_view name, ValueGetter<T> getter,
                                                          ValueSetter<T> setter, access_mode access,
                                                          std::string_view register_name) {
    const std::string reg = register_name_of(name, register_name);
    auto& node = feature<genicam_gen::Integer>(name);
    node.value = link_elem{reg};
    auto& added = add_int_reg(reg, sizeof(T), access, make_value_entry<T>(std::move(getter), std::move(setter)));
    // A node's value is 64 bits signed, so a full-width register can only be that.
    if (sizeof(T) == 8) added.sign = genicam_gen::sign::signed_;
    return node;
}
template genicam_gen::Integer& GenApiInterfaceBuilder::add_integer(std::string_view, ValueGetter<uint32_t>,
                                                                   ValueSetter<uint32_t>, access_mode,
                                                                   std::string_view);
template genicam_gen::Integer& GenApiInterfaceBuilder::add_integer(std::string_view, ValueGetter<int64_t>,
                                                                   ValueSetter<int64_t>, access_mode, std::string_view);
template genicam_gen::Integer& GenApiInterfaceBuilder::add_integer(std::string_view, ValueGetter<uint64_t>,
                                                                   ValueSetter<uint64_t>, access_mode,
                                                                   std::string_view);

genicam_gen::Boolean& GenApiInterfaceBuilder::add_ro_boolean(std::string_view name, ValueGetter<bool> getter,
                                                             std::string_view register_name) {
    return add_rw_boolean(name, std::move(getter), {}, register_name);
}

genicam_gen::Boolean& GenApiInterfaceBuilder::add_rw_boolean(std::string_view name, ValueGetter<bool> getter,
                                                             ValueSetter<bool> setter, std::string_view register_name) {
    const std::string reg = register_name_of(name, register_name);
    const access_mode access = setter ? access_mode::rw : access_mode::ro;
    auto& node = feature<genicam_gen::Boolean>(name);
    node.value = link_elem{reg};
    add_int_reg(reg, 4, access, make_value_entry<bool>(std::move(getter), std::move(setter)));
    return node;
}

genicam_gen::Enumeration& GenApiInterfaceBuilder::add_enumeration(std::string_view name,
                                                                  std::initializer_list<EnumChoice> choices,
                                                                  ValueGetter<uint32_t> getter,
                                                                  ValueSetter<uint32_t> setter,
                                                                  std::string_view register_name) {
    const std::string reg = register_name_of(name, register_name);
    const access_mode access = setter ? access_mode::rw : access_mode::ro;
    auto& node = feature<genicam_gen::Enumeration>(name);
    node.value = link_elem{reg};
    add_int_reg(reg, 4, access, make_value_entry<uint32_t>(std::move(getter), std::move(setter)));
    if (choices.size() != 0) node.entries.clear();
    for (const EnumChoice& choice : choices) {
        genicam_gen::EnumEntry entry;
        entry.name = choice.name;
        entry.name_space = genicam_gen::name_space::standard;
        entry.value = choice.value;
        node.entries.push_back(std::move(entry));
    }
    return node;
}

genicam_gen::Enumeration& GenApiInterfaceBuilder::add_ro_enumeration(std::string_view name,
                                                                     ValueGetter<uint32_t> getter,
                                                                     std::initializer_list<EnumChoice> choices,
                                                                     std::string_view register_name) {
    return add_enumeration(name, choices, std::move(getter), {}, register_name);
}

genicam_gen::Enumeration& GenApiInterfaceBuilder::add_rw_enumeration(std::string_view name,
                                                                     std::initializer_list<EnumChoice> choices,
                                                                     ValueGetter<uint32_t> getter,
                                                                     ValueSetter<uint32_t> setter,
                                                                     std::string_view register_name) {
    return add_enumeration(name, choices, std::move(getter), std::move(setter), register_name);
}

genicam_gen::Integer& GenApiInterfaceBuilder::add_ro_ip_address(std::string_view name, ValueGetter<uint32_t> getter) {
    auto& node = add_ro_integer<uint32_t>(name, std::move(getter));
    node.representation = genicam_gen::representation::ipv4_address;
    return node;
}

genicam_gen::Integer& GenApiInterfaceBuilder::add_rw_ip_address(std::string_view name, ValueGetter<uint32_t> getter,
                                                                ValueSetter<uint32_t> setter) {
    auto& node = add_rw_integer<uint32_t>(name, std::move(getter), std::move(setter));
    node.representation = genicam_gen::representation::ipv4_address;
    return node;
}

genicam_gen::Integer& GenApiInterfaceBuilder::add_ro_mac_address(std::string_view name, ValueGetter<uint64_t> getter) {
    auto& node = add_ro_integer<uint64_t>(name, std::move(getter));
    node.representation = genicam_gen::representation::mac_address;
    return node;
}

genicam_gen::String& GenApiInterfaceBuilder::add_string(std::string_view name, size_t max_length, access_mode access,
                                                        std::unique_ptr<RegisterMapEntry> entry,
                                                        std::string_view register_name) {
    const std::string reg = register_name_of(name, register_name);
    auto& node = feature<genicam_gen::String>(name);
    node.value = link_elem{reg};
    add_string_reg(reg, max_length, access, std::move(entry));
    return node;
}

genicam_gen::String& GenApiInterfaceBuilder::add_ro_string(std::string_view name, size_t max_length, TextGetter getter,
                                                           std::string_view register_name) {
    return add_string(name, max_length, access_mode::ro, make_string_entry(std::move(getter), max_length),
                      register_name);
}

genicam_gen::String& GenApiInterfaceBuilder::add_ro_string(std::string_view name, size_t max_length,
                                                           ValueGetter<std::string> getter,
                                                           std::string_view register_name) {
    return add_string(name, max_length, access_mode::ro, make_string_entry(std::move(getter), {}, max_length),
                      register_name);
}

genicam_gen::String& GenApiInterfaceBuilder::add_rw_string(std::string_view name, size_t max_length,
                                                           ValueGetter<std::string> getter,
                                                           ValueSetter<std::string> setter,
                                                           std::string_view register_name) {
    auto& node = add_string(name, max_length, access_mode::rw,
                            make_string_entry(std::move(getter), std::move(setter), max_length), register_name);
    node.imposed_access_mode.reset();
    return node;
}

genicam_gen::Integer& GenApiInterfaceBuilder::add_integer_constant(std::string_view name, int64_t value) {
    auto& node = feature<genicam_gen::Integer>(name);
    node.value = value;
    return node;
}

genicam_gen::Enumeration& GenApiInterfaceBuilder::add_enum_constant(std::string_view name, std::string_view entry) {
    auto& node = feature<genicam_gen::Enumeration>(name);
    std::erase_if(node.entries, [&](const genicam_gen::EnumEntry& other) { return other.name != entry; });
    if (node.entries.empty()) {
        genicam_gen::EnumEntry created;
        created.name = entry;
        created.name_space = genicam_gen::name_space::standard;
        created.value = 0;
        node.entries.push_back(std::move(created));
    }
    node.value = node.entries.front().value.value_or(0);
    return node;
}

genicam_gen::Integer& GenApiInterfaceBuilder::add_selector(std::string_view name,
                                                           const std::function<size_t()>& list_size, uint32_t* variable,
                                                           bool hide_when_empty) {
    auto& node = feature<genicam_gen::Integer>(name);
    node.value = link_elem{register_name_of(name, {})};
    const std::string max_register = std::string{name} + "MaxRegister";
    node.min = int64_t{0};
    node.max = link_elem{max_register};
    add_int_reg(register_name_of(name, {}), 4, access_mode::rw, make_variable_entry(variable));
    add_int_reg(max_register, 4, access_mode::ro,
                make_value_entry<uint32_t>([list_size]() -> std::expected<uint32_t, Error> {
                    const size_t size = list_size();
                    return static_cast<uint32_t>(size == 0 ? 0 : size - 1);
                }));
    if (hide_when_empty) {
        add_availability(name, std::string{name} + "_AvailableRegister",
                         [list_size]() -> std::expected<bool, Error> { return list_size() != 0; });
    }
    return node;
}

void GenApiInterfaceBuilder::select(std::string_view selector, std::initializer_list<std::string_view> features) {
    auto* node = model.find_as<genicam_gen::Integer>(selector);
    if (node == nullptr) return;
    for (const std::string_view name : features) {
        append_once(node->p_selected, name);
        if (genicam_gen::node* selected = model.find(name)) {
            std::visit(
                [&](auto& typed) {
                    if constexpr (requires { typed.p_invalidators; }) append_once(typed.p_invalidators, selector);
                    // Over an empty list there is nothing to read.
                    if (!typed.p_is_available) typed.p_is_available = node->p_is_available;
                },
                *selected);
        }
    }
}

void GenApiInterfaceBuilder::add_availability(std::string_view name, std::string_view register_name,
                                              ValueGetter<bool> getter) {
    add_int_reg(register_name, 4, access_mode::ro, make_value_entry<bool>(std::move(getter)));
    if (genicam_gen::node* node = model.find(name)) {
        std::visit([&](auto& typed) { typed.p_is_available = std::string{register_name}; }, *node);
    }
}

void GenApiInterfaceBuilder::add_lock(std::string_view name, std::string_view register_name, ValueGetter<bool> getter) {
    add_int_reg(register_name, 4, access_mode::ro, make_value_entry<bool>(std::move(getter)));
    if (genicam_gen::node* node = model.find(name)) {
        std::visit([&](auto& typed) { typed.p_is_locked = std::string{register_name}; }, *node);
    }
}

genicam_gen::Category& GenApiInterfaceBuilder::add_category(std::string_view name,
                                                            std::initializer_list<std::string_view> features) {
    auto& category = reference.category_on_demand(model, name);
    for (const std::string_view feature_name : features) append_once(category.p_features, feature_name);
    return category;
}

genicam_gen::Port& GenApiInterfaceBuilder::add_event_port(std::string_view port_name, uint64_t event_id) {
    auto& node = feature<genicam_gen::Port>(port_name);
    node.visibility = genicam_gen::visibility::invisible;
    node.event_id = event_id;
    return node;
}

genicam_gen::Integer& GenApiInterfaceBuilder::add_event_data(std::string_view name, uint64_t event_id) {
    const std::string port_name = std::string{name} + "Port";
    const std::string reg = register_name_of(name, {});
    add_event_port(port_name, event_id);
    auto& data = add_register<genicam_gen::IntReg>(reg, 1, access_mode::ro, 0);
    data.reg.p_port = port_name;
    data.sign = genicam_gen::sign::unsigned_;
    data.endianess = genicam_gen::endianess::little;
    auto& node = feature<genicam_gen::Integer>(name);
    node.value = link_elem{reg};
    return node;
}

genicam_gen::document GenApiInterfaceBuilder::finish() {
    auto& root = *model.find_as<genicam_gen::Category>("Root");
    for (const genicam_gen::node& node : model.nodes()) {
        const auto* category = std::get_if<genicam_gen::Category>(&node);
        if (category != nullptr && category->name != "Root") append_once(root.p_features, category->name);
    }
    const auto drop_absent = [&](genicam_gen::link_list& names) {
        std::erase_if(names, [&](const std::string& name) { return model.find(name) == nullptr; });
    };
    for (genicam_gen::node& node : model.nodes()) {
        std::visit(
            [&](auto& typed) {
                if constexpr (requires { typed.p_features; }) drop_absent(typed.p_features);
                if constexpr (requires { typed.p_selected; }) drop_absent(typed.p_selected);
                if constexpr (requires { typed.p_invalidators; }) drop_absent(typed.p_invalidators);
            },
            node);
    }
    return std::move(model);
}

Error GenApiInterfaceBuilder::write_debug_file(std::string_view stem, std::string_view version) const {
    const std::string text = document_text(model);
    const std::string name = fmt::format("{}-{}-{}.xml", stem, version, genicam_gen::text_hash(text));
    std::ofstream file{name, std::ios::binary | std::ios::trunc};
    if (!file) {
        return {GC_ERR_ERROR, "Failed to open file '{}'. Err: {}.", name,
                std::error_code{errno, std::generic_category()}.message()};
    }
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
    file.close();
    return file ? success() : Error{GC_ERR_IO, "Failed to write file '{}'.", name};
}

std::string document_text(const genicam_gen::document& model) {
    return genicam_gen::serialize_to_string(genicam_gen::write_document(model));
}

} // namespace GenTL::Producer::Util
