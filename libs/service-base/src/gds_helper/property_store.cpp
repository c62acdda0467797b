#include <gds_helper/property_store.h>

namespace gds_helper {

std::error_code property_store_rw::remove_entry(const std::string&) {
    return std::make_error_code(std::errc::function_not_supported);
}

std::int64_t read_int64_or(const property_store_ro& store, const std::string& key, std::int64_t value) {
    std::int64_t found = 0;
    return store.read_int64(key, found) ? value : found;
}

double read_double_or(const property_store_ro& store, const std::string& key, double value) {
    double found = 0;
    return store.read_double(key, found) ? value : found;
}

std::string read_string_or(const property_store_ro& store, const std::string& key, std::string value) {
    std::string found;
    if (store.read_string(key, found)) return value;
    return found;
}

bool read_bool_or(const property_store_ro& store, const std::string& key, bool value) {
    return read_int64_or(store, key, value ? 1 : 0) != 0;
}

void copy_entries(const property_store_rw& from, property_store_rw& to) {
    struct writer {
        property_store_rw& to;
        const std::string& key;
        std::error_code operator()(std::int64_t value) const { return to.write_int64(key, value); }
        std::error_code operator()(double value) const { return to.write_double(key, value); }
        std::error_code operator()(const std::string& value) const { return to.write_string(key, value); }
    };
    for (const auto& [key, value] : from.enum_entries()) {
        static_cast<void>(std::visit(writer{to, key}, value));
    }
}

} // namespace gds_helper
