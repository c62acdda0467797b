// Properties in memory.
#pragma once

#include <gds_helper/property_store.h>

#include <map>

namespace gds_helper {

// Reads want the type that was written: a mismatch is std::errc::invalid_argument.
class property_store_map final : public property_store_rw, public std::enable_shared_from_this<property_store_map> {
public:
    std::error_code read_double(const std::string& key, double& value) const override;
    std::error_code read_int64(const std::string& key, std::int64_t& value) const override;
    std::error_code read_string(const std::string& key, std::string& value) const override;
    // Itself when owned by a std::shared_ptr.
    std::shared_ptr<property_store_rw> get_backing_store() const override;
    bool has_entry(const std::string& key) const override;
    std::error_code write_double(const std::string& key, double value) override;
    std::error_code write_int64(const std::string& key, std::int64_t value) override;
    std::error_code write_string(const std::string& key, const std::string& value) override;
    std::error_code remove_entry(const std::string& key) override;
    std::vector<property_entry> enum_entries() const override;

private:
    std::map<std::string, property_value> entries;
};

} // namespace gds_helper
