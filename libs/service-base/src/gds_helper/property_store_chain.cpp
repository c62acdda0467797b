#include <gds_helper/property_store_chain.h>

#include <algorithm>

namespace gds_helper {

namespace {

template <class Read>
std::error_code first_success(const std::vector<std::shared_ptr<property_store_ro>>& stores, Read read) {
    std::error_code error = std::make_error_code(std::errc::invalid_argument);
    for (const auto& store : stores) {
        error = read(*store);
        if (!error) break;
    }
    return error;
}

} // namespace

std::error_code property_store_chain::read_double(const std::string& key, double& value) const {
    return first_success(stores, [&](const property_store_ro& store) { return store.read_double(key, value); });
}
std::error_code property_store_chain::read_int64(const std::string& key, std::int64_t& value) const {
    return first_success(stores, [&](const property_store_ro& store) { return store.read_int64(key, value); });
}
std::error_code property_store_chain::read_string(const std::string& key, std::string& value) const {
    return first_success(stores, [&](const property_store_ro& store) { return store.read_string(key, value); });
}

std::shared_ptr<property_store_rw> property_store_chain::get_backing_store() const {
    for (const auto& store : stores) {
        if (auto backing = store->get_backing_store()) return backing;
    }
    return nullptr;
}

bool property_store_chain::has_entry(const std::string& key) const {
    return std::ranges::any_of(stores, [&](const auto& store) { return store->has_entry(key); });
}

} // namespace gds_helper
