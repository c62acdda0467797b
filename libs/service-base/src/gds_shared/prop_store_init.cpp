#include <gds_shared/prop_store_init.h>

#include <gds_helper/property_store_env.h>
#include <gds_helper/property_store_json.h>
#include <gds_helper/property_store_map.h>
#include <gds_helper/property_store_registry.h>

#include <fmt/format.h>

#include <algorithm>
#include <vector>

namespace gds_shared {

namespace {

// Levels are 0 "trace" to 6 "off".
constexpr std::int64_t first_invalid_level = 7;

void apply_environment(gds_helper::property_store_rw& store, const product_constants& product) {
    const gds_helper::property_store_env environment;
    std::int64_t level = 0;
    if (!environment.read_int64(fmt::format("ORV_GENTL_{}_DEBUG", product.tl_type), level) && level >= 0 &&
        level < first_invalid_level) {
        static_cast<void>(store.write_int64("log_level", level));
    }
    std::string file;
    if (!environment.read_string(fmt::format("ORV_GENTL_{}_DEBUG_FILE", product.tl_type), file) && !file.empty()) {
        static_cast<void>(store.write_string("cti_log_file", file));
        static_cast<void>(store.write_string("service_log_file", file));
    }
}

void apply_setup_files(gds_helper::property_store_rw& store, const product_constants& product,
                       const std::filesystem::path& directory) {
    const std::string stem_start = fmt::format("{}_setup", product.producer_name);
    std::vector<std::filesystem::path> files;
    std::error_code error;
    for (std::filesystem::directory_iterator entry{directory, error}, end; !error && entry != end;
         entry.increment(error)) {
        std::error_code ignored;
        if (entry->path().extension() == ".json" && entry->path().stem().string().starts_with(stem_start) &&
            entry->is_regular_file(ignored)) {
            files.push_back(entry->path());
        }
    }
    std::ranges::sort(files);
    for (const auto& file : files) copy_entries(gds_helper::property_store_json_rw{file}, store);
}

} // namespace

void prop_store_init(gds_helper::property_store_rw& store, const product_constants& product,
                     const std::filesystem::path& own_directory) {
    apply_environment(store, product);
    apply_setup_files(store, product, own_directory);
    const std::string extra = gds_helper::read_string_or(gds_helper::property_store_env{},
                                                         fmt::format("ORV_GENTL_{}_PROP_INIT", product.tl_type), "");
    if (!extra.empty()) copy_entries(gds_helper::property_store_json_rw{extra}, store);
}

std::shared_ptr<gds_helper::property_store_chain> make_property_chain(const product_constants& product,
                                                                      const std::filesystem::path& own_directory) {
    auto map = std::make_shared<gds_helper::property_store_map>();
    prop_store_init(*map, product, own_directory);
    const std::string key = settings_key(product);
    auto chain = std::make_shared<gds_helper::property_store_chain>();
    chain->append(map);
    chain->append(
        std::make_shared<gds_helper::property_store_registry_ro>(gds_helper::registry_root::current_user, key));
    chain->append(
        std::make_shared<gds_helper::property_store_registry_ro>(gds_helper::registry_root::local_machine, key));
    return chain;
}

bool apply_buffer_tracing_setting(const gds_helper::property_store_ro& store) {
    if (!gds_helper::read_bool_or(store, "cti_enable_gentl_buffer_tracing", false)) return false;
    if (const auto backing = store.get_backing_store()) {
        static_cast<void>(backing->write_int64("log_level_GenTLProd", 0));
    }
    return true;
}

} // namespace gds_shared
