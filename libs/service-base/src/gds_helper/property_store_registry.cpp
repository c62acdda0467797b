#include <gds_helper/property_store_json.h>
#include <gds_helper/property_store_registry.h>

#include "platform.h"

#include <algorithm>
#include <bit>

namespace gds_helper {

namespace {

const property_value* find(const std::vector<property_entry>& entries, const std::string& key) {
    const auto found = std::ranges::find(entries, key, &property_entry::first);
    return found == entries.end() ? nullptr : &found->second;
}

template <class T>
std::error_code read(const property_store_json_rw& values, const std::string& key, T& value) {
    const auto entries = values.enum_entries();
    const auto* entry = find(entries, key);
    const T* held = entry == nullptr ? nullptr : std::get_if<T>(entry);
    if (held == nullptr) return std::make_error_code(std::errc::invalid_argument);
    value = *held;
    return {};
}

std::error_code read_bits(const property_store_json_rw& values, const std::string& key, double& value) {
    std::int64_t bits = 0;
    if (const auto error = read(values, key, bits)) return error;
    value = std::bit_cast<double>(bits);
    return {};
}

} // namespace

std::filesystem::path registry_file(registry_root root, const std::string& key) {
    const auto base =
        root == registry_root::current_user ? platform::user_settings_folder() : platform::machine_settings_folder();
    if (base.empty()) return {};
    std::string relative = key + ".json";
    std::ranges::replace(relative, '\\', '/');
    return base / relative;
}

property_store_registry_ro::property_store_registry_ro(registry_root root, const std::string& key)
    : values(std::make_unique<property_store_json_rw>(registry_file(root, key))) {}
property_store_registry_ro::~property_store_registry_ro() = default;

std::error_code property_store_registry_ro::read_double(const std::string& key, double& value) const {
    return read_bits(*values, key, value);
}
std::error_code property_store_registry_ro::read_int64(const std::string& key, std::int64_t& value) const {
    return read(*values, key, value);
}
std::error_code property_store_registry_ro::read_string(const std::string& key, std::string& value) const {
    return read(*values, key, value);
}
bool property_store_registry_ro::has_entry(const std::string& key) const { return values->has_entry(key); }

property_store_registry_rw::property_store_registry_rw(registry_root root, const std::string& key)
    : values(std::make_unique<property_store_json_rw>(registry_file(root, key))) {}
property_store_registry_rw::~property_store_registry_rw() = default;

std::error_code property_store_registry_rw::read_double(const std::string& key, double& value) const {
    return read_bits(*values, key, value);
}
std::error_code property_store_registry_rw::read_int64(const std::string& key, std::int64_t& value) const {
    return read(*values, key, value);
}
std::error_code property_store_registry_rw::read_string(const std::string& key, std::string& value) const {
    return read(*values, key, value);
}
bool property_store_registry_rw::has_entry(const std::string& key) const { return values->has_entry(key); }

std::error_code property_store_registry_rw::write_double(const std::string& key, double value) {
    return write_int64(key, std::bit_cast<std::int64_t>(value));
}
std::error_code property_store_registry_rw::write_int64(const std::string& key, std::int64_t value) {
    const auto error = values->write_int64(key, value);
    values->flush_back();
    return error;
}
std::error_code property_store_registry_rw::write_string(const std::string& key, const std::string& value) {
    const auto error = values->write_string(key, value);
    values->flush_back();
    return error;
}
std::error_code property_store_registry_rw::remove_entry(const std::string& key) {
    const auto error = values->remove_entry(key);
    values->flush_back();
    return error;
}

std::vector<property_entry> property_store_registry_rw::enum_entries() const {
    auto entries = values->enum_entries();
    std::erase_if(entries, [](const property_entry& entry) { return std::holds_alternative<double>(entry.second); });
    return entries;
}

} // namespace gds_helper
