// Several property stores asked in order.
#pragma once

#include <gds_helper/property_store.h>

namespace gds_helper {

// A read is the first success of its stores, else the last one's error; an empty chain fails every read.
class property_store_chain final : public property_store_ro {
public:
    void append(std::shared_ptr<property_store_ro> store) { stores.push_back(std::move(store)); }

    std::error_code read_double(const std::string& key, double& value) const override;
    std::error_code read_int64(const std::string& key, std::int64_t& value) const override;
    std::error_code read_string(const std::string& key, std::string& value) const override;
    // The first non-null backing store of its stores.
    std::shared_ptr<property_store_rw> get_backing_store() const override;
    bool has_entry(const std::string& key) const override;

private:
    std::vector<std::shared_ptr<property_store_ro>> stores;
};

} // namespace gds_helper
