#include <gds_helper/property_store_env.h>

#include <charconv>
#include <cstdlib>
#include <string_view>

namespace gds_helper {

namespace {

template <class T>
std::error_code read_number(const std::string& key, T& value) {
    const char* variable = std::getenv(key.c_str());
    const std::string_view text = variable == nullptr ? std::string_view{} : variable;
    T parsed{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), parsed);
    if (error != std::errc{} || end != text.data() + text.size()) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    value = parsed;
    return {};
}

} // namespace

std::error_code property_store_env::read_double(const std::string& key, double& value) const {
    return read_number(key, value);
}
std::error_code property_store_env::read_int64(const std::string& key, std::int64_t& value) const {
    return read_number(key, value);
}
std::error_code property_store_env::read_string(const std::string& key, std::string& value) const {
    const char* text = std::getenv(key.c_str());
    if (text == nullptr) return std::make_error_code(std::errc::invalid_argument);
    value = text;
    return {};
}

bool property_store_env::has_entry(const std::string& key) const { return std::getenv(key.c_str()) != nullptr; }

} // namespace gds_helper
