// The system's settings store: values under a key such as "Software\Vendor\Product\service".
//
// Two kinds of value only, a 64-bit integer and a string. A double is kept as the 64 bits of an integer. Reading a
// value of another kind is std::errc::invalid_argument, and so is a missing one.
#pragma once

#include <gds_helper/property_store.h>

#include <filesystem>

namespace gds_helper {

class property_store_json_rw;

enum class registry_root {
    current_user,  // $XDG_CONFIG_HOME, else ~/.config
    local_machine, // /etc
};

// Where the values of a key are kept. Empty when this user has no home directory.
[[nodiscard]] std::filesystem::path registry_file(registry_root root, const std::string& key);

// As the values stood when it was made.
class property_store_registry_ro final : public property_store_ro {
public:
    property_store_registry_ro(registry_root root, const std::string& key);
    ~property_store_registry_ro() override;

    std::error_code read_double(const std::string& key, double& value) const override;
    std::error_code read_int64(const std::string& key, std::int64_t& value) const override;
    std::error_code read_string(const std::string& key, std::string& value) const override;
    bool has_entry(const std::string& key) const override;
    [[nodiscard]] const property_store_json_rw& file() const noexcept { return *values; }

private:
    std::unique_ptr<property_store_json_rw> values;
};

// Each write goes to the file at once.
class property_store_registry_rw final : public property_store_rw {
public:
    property_store_registry_rw(registry_root root, const std::string& key);
    ~property_store_registry_rw() override;

    std::error_code read_double(const std::string& key, double& value) const override;
    std::error_code read_int64(const std::string& key, std::int64_t& value) const override;
    std::error_code read_string(const std::string& key, std::string& value) const override;
    bool has_entry(const std::string& key) const override;
    std::error_code write_double(const std::string& key, double value) override;
    std::error_code write_int64(const std::string& key, std::int64_t value) override;
    std::error_code write_string(const std::string& key, const std::string& value) override;
    std::error_code remove_entry(const std::string& key) override;
    std::vector<property_entry> enum_entries() const override;

private:
    std::unique_ptr<property_store_json_rw> values;
};

} // namespace gds_helper
