#include <gds_helper/property_store_map.h>

namespace gds_helper {

namespace {

template <class T>
std::error_code read(const std::map<std::string, property_value>& entries, const std::string& key, T& value) {
    const auto found = entries.find(key);
    const T* held = found == entries.end() ? nullptr : std::get_if<T>(&found->second);
    if (held == nullptr) return std::make_error_code(std::errc::invalid_argument);
    value = *held;
    return {};
}

} // namespace

std::error_code property_store_map::read_double(const std::string& key, double& value) const {
    return read(entries, key, value);
}
std::error_code property_store_map::read_int64(const std::string& key, std::int64_t& value) const {
    return read(entries, key, value);
}
std::error_code property_store_map::read_string(const std::string& key, std::string& value) const {
    return read(entries, key, value);
}

std::shared_ptr<property_store_rw> property_store_map::get_backing_store() const {
    // The store as such is never const: handing it out for writing is what this operation is for.
    return std::const_pointer_cast<property_store_map>(weak_from_this().lock());
}

bool property_store_map::has_entry(const std::string& key) const { return entries.contains(key); }

std::error_code property_store_map::write_double(const std::string& key, double value) {
    entries[key] = value;
    return {};
}
std::error_code property_store_map::write_int64(const std::string& key, std::int64_t value) {
    entries[key] = value;
    return {};
}
std::error_code property_store_map::write_string(const std::string& key, const std::string& value) {
    entries[key] = value;
    return {};
}

std::error_code property_store_map::remove_entry(const std::string& key) {
    entries.erase(key);
    return {};
}

std::vector<property_entry> property_store_map::enum_entries() const { return {entries.begin(), entries.end()}; }

} // namespace gds_helper
