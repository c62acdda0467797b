// Flat key-value configuration: one interface, several back ends.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

namespace gds_helper {

class property_store_rw;

using property_value = std::variant<std::int64_t, double, std::string>;
using property_entry = std::pair<std::string, property_value>;

// Read access. No store locks: written during start-up, afterwards read by any thread.
// A failed read leaves its result untouched; a missing key is std::errc::invalid_argument.
class property_store_ro {
public:
    [[nodiscard]] virtual std::error_code read_double(const std::string& key, double& value) const = 0;
    [[nodiscard]] virtual std::error_code read_int64(const std::string& key, std::int64_t& value) const = 0;
    [[nodiscard]] virtual std::error_code read_string(const std::string& key, std::string& value) const = 0;
    virtual ~property_store_ro() = default;
    // The store that takes writes for this one, or null.
    [[nodiscard]] virtual std::shared_ptr<property_store_rw> get_backing_store() const { return nullptr; }
    [[nodiscard]] virtual bool has_entry(const std::string& key) const = 0;
};

class property_store_rw : public property_store_ro {
public:
    [[nodiscard]] virtual std::error_code write_double(const std::string& key, double value) = 0;
    [[nodiscard]] virtual std::error_code write_int64(const std::string& key, std::int64_t value) = 0;
    [[nodiscard]] virtual std::error_code write_string(const std::string& key, const std::string& value) = 0;
    // Not every back end can: std::errc::function_not_supported. A key that is not there is no error.
    [[nodiscard]] virtual std::error_code remove_entry(const std::string& key);
    // In the store's own order; entries of a kind that no read returns are left out.
    [[nodiscard]] virtual std::vector<property_entry> enum_entries() const = 0;
    // Writes a file-backed store to its file; nothing in all others.
    virtual void flush_back() {}
};

[[nodiscard]] std::int64_t read_int64_or(const property_store_ro& store, const std::string& key, std::int64_t value);
[[nodiscard]] double read_double_or(const property_store_ro& store, const std::string& key, double value);
[[nodiscard]] std::string read_string_or(const property_store_ro& store, const std::string& key, std::string value);
// Booleans are stored as integers; anything but zero is true.
[[nodiscard]] bool read_bool_or(const property_store_ro& store, const std::string& key, bool value);

// Writes each entry of `from` into `to`; what `to` refuses is left out.
void copy_entries(const property_store_rw& from, property_store_rw& to);

} // namespace gds_helper
