// Properties in a JSON file whose top level is one object.
#pragma once

#include <gds_helper/property_store.h>

#include <nlohmann/json_fwd.hpp>

#include <filesystem>

namespace gds_helper {

// Works in memory; only flush_back writes the file. A file that is missing, cannot be read or holds no JSON object is
// an empty store. Reads want the matching JSON type: a number for both number kinds, a string for strings.
class property_store_json_rw final : public property_store_rw,
                                     public std::enable_shared_from_this<property_store_json_rw> {
public:
    explicit property_store_json_rw(std::filesystem::path path);
    ~property_store_json_rw() override;

    // Why the file's content is not used; empty where it is, and for a file that is missing.
    [[nodiscard]] const std::string& problem() const noexcept { return why_not_used; }

    std::error_code read_double(const std::string& key, double& value) const override;
    std::error_code read_int64(const std::string& key, std::int64_t& value) const override;
    std::error_code read_string(const std::string& key, std::string& value) const override;
    std::shared_ptr<property_store_rw> get_backing_store() const override;
    bool has_entry(const std::string& key) const override;
    std::error_code write_double(const std::string& key, double value) override;
    std::error_code write_int64(const std::string& key, std::int64_t value) override;
    std::error_code write_string(const std::string& key, const std::string& value) override;
    std::error_code remove_entry(const std::string& key) override;
    std::vector<property_entry> enum_entries() const override;
    // Creates missing directories. A failure is logged; what is in memory stays.
    void flush_back() override;

private:
    // The member if it is there and of the wanted kind, else null with a warning for the wrong kind.
    const nlohmann::json* find(const std::string& key, bool want_number) const;
    nlohmann::json& writable_root();

    std::filesystem::path file;
    std::unique_ptr<nlohmann::json> root;
    std::string why_not_used;
};

} // namespace gds_helper
