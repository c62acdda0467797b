// The process environment as properties: the key is the variable's name.
#pragma once

#include <gds_helper/property_store.h>

namespace gds_helper {

// Numbers must fill the whole text; one that does not, and an unset variable, is std::errc::invalid_argument.
class property_store_env final : public property_store_ro {
public:
    std::error_code read_double(const std::string& key, double& value) const override;
    std::error_code read_int64(const std::string& key, std::int64_t& value) const override;
    std::error_code read_string(const std::string& key, std::string& value) const override;
    bool has_entry(const std::string& key) const override;
};

} // namespace gds_helper
