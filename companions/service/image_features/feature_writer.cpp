#include "feature_writer.h"

#include <fmt/format.h>

#include <algorithm>
#include <type_traits>

namespace image_features {

using namespace genicam_gen;

namespace {

constexpr int64_t polling_ms = 500; // of what changes by itself

genicam_gen::register_part place_of(std::size_t offset, value_type type, bool writable) {
    register_part part;
    part.addresses = {static_cast<int64_t>(first_address + offset)};
    part.length = static_cast<int64_t>(width_of(type));
    part.access_mode = writable ? access_mode::rw : access_mode::ro;
    part.cachable = cachable::no_cache;
    const bool changes = !writable || offset == own_register::white_balance_mode || offset == own_register::focus_start;
    if (changes) part.polling_time = polling_ms;
    return part;
}

// A constant, or the register that bounds it.
template <class T>
value_field<T> limit(const std::optional<std::string>& bound, double constant) {
    if (bound) return link_elem{*bound};
    return static_cast<T>(constant);
}

} // namespace

template <class Record>
Record feature_writer::described(const feature_text& text) const {
    Record record;
    record.name = text.name;
    record.name_space = name_space::custom;
    record.tool_tip = text.tool_tip;
    record.description = text.tool_tip;
    record.display_name = text.display_name;
    record.visibility = text.visibility;
    return record;
}

void feature_writer::begin_category(const feature_text& text) { categories.push_back(described<Category>(text)); }

std::string feature_writer::register_of(std::size_t offset, std::string_view selector, std::size_t distance) {
    std::string name = fmt::format("SoftwareRegister_{:03X}{}", offset, selector.empty() ? "" : "_Selected");
    if (model.find(name) != nullptr) return name;
    const register_entry& entry = *find_register(offset);
    register_part part = place_of(offset, entry.type, entry.writable);
    if (!selector.empty())
        part.p_indexes.push_back({std::string{selector}, static_cast<int64_t>(distance), std::nullopt});
    if (entry.type == value_type::float32) {
        FloatReg record;
        record.name = name;
        record.reg = std::move(part);
        record.endianess = endianess::little;
        model.add(std::move(record));
    } else {
        IntReg record;
        record.name = name;
        record.reg = std::move(part);
        record.sign =
            entry.type == value_type::int32 || entry.type == value_type::int64 ? sign::signed_ : sign::unsigned_;
        record.endianess = endianess::little;
        model.add(std::move(record));
    }
    return name;
}

bool feature_writer::flag(const feature_text& text, std::size_t offset) {
    if (!usable(text.name)) return false;
    auto record = described<Boolean>(text);
    if (marks_streamable && find_register(offset)->writable) record.streamable = true;
    record.value = link_elem{register_of(offset)};
    record.on_value = 1;
    record.off_value = 0;
    model.add(std::move(record));
    listed(text.name);
    return true;
}

bool feature_writer::number(const feature_text& text, std::size_t offset, bool writable) {
    if (!usable(text.name)) return false;
    const register_entry& entry = *find_register(offset);
    const auto common = [&](auto record) {
        if (marks_streamable && writable && entry.writable) record.streamable = true;
        if (!writable) record.imposed_access_mode = access_mode::ro;
        record.value = link_elem{register_of(offset)};
        if (!text.unit.empty()) record.unit = text.unit;
        std::optional<std::string> lowest, highest;
        if (entry.not_below) lowest = register_of(*entry.not_below);
        if (entry.not_above) highest = register_of(*entry.not_above);
        if (entry.writable && writable) {
            record.min =
                limit<std::conditional_t<std::is_same_v<decltype(record), Float>, double, int64_t>>(lowest, entry.min);
            record.max =
                limit<std::conditional_t<std::is_same_v<decltype(record), Float>, double, int64_t>>(highest, entry.max);
        }
        model.add(std::move(record));
    };
    if (entry.type == value_type::float32)
        common(described<Float>(text));
    else
        common(described<Integer>(text));
    listed(text.name);
    return true;
}

bool feature_writer::choice(const feature_text& text, std::size_t offset,
                            std::initializer_list<std::string_view> entries) {
    if (!usable(text.name)) return false;
    auto record = described<Enumeration>(text);
    for (const std::string_view name : entries) {
        EnumEntry entry;
        entry.name = name;
        entry.value = static_cast<int64_t>(record.entries.size());
        record.entries.push_back(std::move(entry));
    }
    record.value = link_elem{register_of(offset)};
    // What runs and ends by itself is no setting.
    if (marks_streamable && offset < own_begin) record.streamable = true;
    if (offset >= own_begin) record.polling_time = polling_ms;
    model.add(std::move(record));
    listed(text.name);
    return true;
}

bool feature_writer::command(const feature_text& text, std::size_t offset) {
    if (!usable(text.name)) return false;
    auto record = described<Command>(text);
    record.value = link_elem{register_of(offset)};
    record.command_value = int64_t{1};
    record.polling_time = polling_ms;
    model.add(std::move(record));
    listed(text.name);
    return true;
}

bool feature_writer::selected(const feature_text& selector, std::initializer_list<std::string_view> entries,
                              std::initializer_list<selected_value> values, std::size_t distance, bool writable) {
    const std::string index = fmt::format("{}_Value", selector.name);
    if (!usable(selector.name) || !usable(index)) return false;
    if (!std::ranges::all_of(values, [&](const selected_value& value) { return usable(value.text.name); }))
        return false;
    Integer held;
    held.name = index;
    held.visibility = visibility::invisible;
    held.value = int64_t{0};
    held.min = int64_t{0};
    held.max = static_cast<int64_t>(entries.size()) - 1;
    model.add(std::move(held));
    auto choices = described<Enumeration>(selector);
    for (const std::string_view name : entries) {
        EnumEntry entry;
        entry.name = name;
        entry.value = static_cast<int64_t>(choices.entries.size());
        choices.entries.push_back(std::move(entry));
    }
    choices.value = link_elem{index};
    for (const selected_value& value : values) choices.p_selected.emplace_back(value.text.name);
    model.add(std::move(choices));
    listed(selector.name);

    const auto add = [&](auto record, const selected_value& value) {
        const register_entry& entry = *find_register(value.offset);
        if (marks_streamable && writable && entry.writable) record.streamable = true;
        if (!writable) record.imposed_access_mode = access_mode::ro;
        record.value = link_elem{register_of(value.offset, index, distance)};
        if (!value.text.unit.empty()) record.unit = value.text.unit;
        using number = std::conditional_t<std::is_same_v<decltype(record), Float>, double, int64_t>;
        record.min = static_cast<number>(entry.min);
        record.max = static_cast<number>(entry.max);
        model.add(std::move(record));
        listed(value.text.name);
    };
    for (const selected_value& value : values) {
        if (find_register(value.offset)->type == value_type::float32)
            add(described<Float>(value.text), value);
        else
            add(described<Integer>(value.text), value);
    }
    return true;
}

document feature_writer::finish(const feature_text& root) {
    Category top = described<Category>(root);
    for (Category& category : categories) {
        if (category.p_features.empty()) continue;
        if (category.name == root.name) {
            top.p_features.insert(top.p_features.begin(), category.p_features.begin(), category.p_features.end());
        } else if (usable(category.name)) {
            top.p_features.push_back(category.name);
            model.add(std::move(category));
        } else {
            top.p_features.insert(top.p_features.end(), category.p_features.begin(), category.p_features.end());
        }
    }
    if (!top.p_features.empty()) model.add(std::move(top));
    return std::move(model);
}

} // namespace image_features
