#include <gds_helper/log.h>
#include <gds_helper/process.h>
#include <gds_helper/property_store_json.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cerrno>
#include <fstream>
#include <limits>

namespace gds_helper {

namespace {

std::error_code wrong_kind() { return std::make_error_code(std::errc::invalid_argument); }

// A real number or one beyond 63 bits is a number too, but has a value here only when int64 can hold it.
bool fits_int64(const nlohmann::json& number) {
    if (number.is_number_float()) {
        constexpr double limit = 9223372036854775808.0;
        const double value = number.get<double>();
        return value >= -limit && value < limit;
    }
    return !number.is_number_unsigned() ||
           number.get<std::uint64_t>() <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
}

} // namespace

property_store_json_rw::property_store_json_rw(std::filesystem::path path)
    : file(std::move(path)), root(std::make_unique<nlohmann::json>(nlohmann::json::object())) {
    std::error_code error;
    const auto type = std::filesystem::status(file, error).type();
    if (file.empty() || type == std::filesystem::file_type::not_found) return;
    std::string reason;
    try {
        std::ifstream in;
        // A pipe that nobody writes would keep the consumer's dlopen waiting.
        if (type == std::filesystem::file_type::none)
            reason = error.message();
        else if (type == std::filesystem::file_type::directory)
            reason = "it is a folder";
        else if (type != std::filesystem::file_type::regular)
            reason = "it is no file";
        else if (in.open(file, std::ios::binary); !in)
            reason = std::generic_category().message(errno);
        else if (*root = nlohmann::json::parse(in); !root->is_object())
            reason = "it is no JSON object";
    } catch (const std::exception& failure) {
        reason = fmt::format("it is no JSON: {}", failure.what());
    }
    if (reason.empty()) return;
    *root = nlohmann::json::object();
    why_not_used = fmt::format("Settings file '{}' is not used, {}", file.string(), reason);
    log::get(log::logger_id::main)->warn("{}", why_not_used);
}

property_store_json_rw::~property_store_json_rw() = default;

const nlohmann::json* property_store_json_rw::find(const std::string& key, bool want_number) const {
    if (!root->is_object()) return nullptr;
    const auto found = root->find(key);
    if (found == root->end()) return nullptr;
    if (want_number ? !found->is_number() : !found->is_string()) {
        log::get(log::logger_id::main)->warn("Invalid type specified for json-entry '{}'.", key);
        return nullptr;
    }
    return &*found;
}

std::error_code property_store_json_rw::read_double(const std::string& key, double& value) const {
    const auto* member = find(key, true);
    if (member == nullptr) return wrong_kind();
    value = member->get<double>();
    return {};
}

std::error_code property_store_json_rw::read_int64(const std::string& key, std::int64_t& value) const {
    const auto* member = find(key, true);
    if (member == nullptr || !fits_int64(*member)) return wrong_kind();
    value = member->get<std::int64_t>();
    return {};
}

std::error_code property_store_json_rw::read_string(const std::string& key, std::string& value) const {
    const auto* member = find(key, false);
    if (member == nullptr) return wrong_kind();
    value = member->get_ref<const std::string&>();
    return {};
}

std::shared_ptr<property_store_rw> property_store_json_rw::get_backing_store() const {
    return std::const_pointer_cast<property_store_json_rw>(weak_from_this().lock());
}

bool property_store_json_rw::has_entry(const std::string& key) const {
    return root->is_object() && root->contains(key);
}

nlohmann::json& property_store_json_rw::writable_root() {
    if (!root->is_object()) *root = nlohmann::json::object();
    return *root;
}

std::error_code property_store_json_rw::write_double(const std::string& key, double value) {
    writable_root()[key] = value;
    return {};
}
std::error_code property_store_json_rw::write_int64(const std::string& key, std::int64_t value) {
    writable_root()[key] = value;
    return {};
}
std::error_code property_store_json_rw::write_string(const std::string& key, const std::string& value) {
    writable_root()[key] = value;
    return {};
}

std::error_code property_store_json_rw::remove_entry(const std::string& key) {
    writable_root().erase(key);
    return {};
}

std::vector<property_entry> property_store_json_rw::enum_entries() const {
    std::vector<property_entry> entries;
    if (!root->is_object()) return entries;
    for (const auto& [key, value] : root->items()) {
        if (value.is_string()) {
            entries.emplace_back(key, value.get<std::string>());
        } else if (value.is_number_integer() && fits_int64(value)) {
            entries.emplace_back(key, value.get<std::int64_t>());
        } else if (value.is_number()) {
            entries.emplace_back(key, value.get<double>());
        }
    }
    return entries;
}

void property_store_json_rw::flush_back() {
    const auto logger = log::get(log::logger_id::main);
    std::error_code error;
    if (const auto directory = file.parent_path(); !directory.empty() && !std::filesystem::exists(directory, error)) {
        std::filesystem::create_directories(directory, error);
        if (error) {
            logger->error("Failed to create intervening directories to backing file at '{}'", file.string());
            return;
        }
    }
    try {
        // Throws for text that is no UTF-8, while the file is still whole.
        const std::string text = root->dump(4) + '\n';
        std::ofstream out;
        out.exceptions(std::ios::failbit | std::ios::badbit);
        out.open(file, std::ios::binary | std::ios::trunc);
        out << text;
        out.close();
    } catch (const std::exception&) {
        logger->error("Failed to flush to backing file at '{}'", file.string());
    }
}

} // namespace gds_helper
