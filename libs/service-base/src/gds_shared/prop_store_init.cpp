#include <gds_shared/prop_store_init.h>

#include <gds_helper/log.h>
#include <gds_helper/property_store_env.h>
#include <gds_helper/property_store_json.h>
#include <gds_helper/property_store_map.h>
#include <gds_helper/property_store_registry.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <vector>

namespace gds_shared {

namespace {

using gds_helper::log::level_default;
using gds_helper::log::level_off;

// What is known of each key: those with a `most` are whole numbers from 0 on, the others texts.
struct known_setting {
    const char* key;
    std::optional<std::int64_t> most;
};
constexpr std::int64_t any_number = std::numeric_limits<std::int64_t>::max(); // but for 0 it means yes
constexpr std::array known_settings{
    known_setting{"log_level", level_off},
    known_setting{"log_flush_level", level_off},
    known_setting{"log_level_IPC", level_default},
    known_setting{"log_level_StreamPacketTracing", level_default},
    known_setting{"log_level_GenTLProd", level_default},
    known_setting{"cti_enable_gentl_buffer_tracing", any_number},
    known_setting{"log_to_outputdebug", any_number},
    known_setting{"cti_log_to_console", any_number},
    known_setting{"service_log_to_console", any_number},
    known_setting{"cti_log_file", {}},
    known_setting{"service_log_file", {}},
    known_setting{"cti_store_directory", {}},
};

// Of a file: what it tells of itself, and the values that nobody can use.
void look_at(const gds_helper::property_store_json_rw& store, const std::filesystem::path& file,
             settings_report& report) {
    std::error_code ignored;
    if (!store.problem().empty()) report.problems.push_back(store.problem());
    if (!store.problem().empty() || file.empty() || !std::filesystem::exists(file, ignored)) return;
    report.files.push_back(file);
    gds_helper::property_store_map copied;
    copy_entries(store, copied); // a number with a point is one for the file itself alone: nobody reads it so
    for (const auto& [key, most] : known_settings) {
        if (!store.has_entry(key)) continue;
        std::int64_t number = 0;
        std::string text;
        const char* wanted = nullptr;
        if (!most && copied.read_string(key, text)) wanted = "a text in quotation marks";
        if (most && (copied.read_int64(key, number) || (*most != any_number && (number < 0 || number > *most))))
            wanted = "a whole number";
        if (wanted != nullptr)
            report.problems.push_back(
                fmt::format("Settings file '{}': '{}' is not used, it must be {}{}", file.string(), key, wanted,
                            !most                 ? ""
                            : *most == any_number ? ": 0 or 1"
                                                  : fmt::format(" from 0 to {}, without quotation marks", *most)));
    }
}

void apply_environment(gds_helper::property_store_rw& store, const product_constants& product,
                       settings_report& report) {
    const gds_helper::property_store_env environment;
    const std::string variable = fmt::format("ORV_GENTL_{}_DEBUG", product.tl_type);
    std::int64_t level = 0;
    std::string given;
    if (!environment.read_int64(variable, level) && level >= 0 && level <= level_off) {
        static_cast<void>(store.write_int64("log_level", level));
    } else if (!environment.read_string(variable, given) && !given.empty()) {
        report.problems.push_back(
            fmt::format("{} is not used, it is '{}' and must be a number from 0 to {}", variable, given, level_off));
    }
    std::string file;
    if (!environment.read_string(fmt::format("ORV_GENTL_{}_DEBUG_FILE", product.tl_type), file) && !file.empty()) {
        static_cast<void>(store.write_string("cti_log_file", file));
        static_cast<void>(store.write_string("service_log_file", file));
    }
}

void apply_setup_files(gds_helper::property_store_rw& store, const product_constants& product,
                       const std::filesystem::path& directory, settings_report& report) {
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
    for (const auto& file : files) {
        const gds_helper::property_store_json_rw values{file};
        look_at(values, file, report);
        copy_entries(values, store);
    }
}

} // namespace

settings_report prop_store_init(gds_helper::property_store_rw& store, const product_constants& product,
                                const std::filesystem::path& own_directory) {
    settings_report report;
    apply_environment(store, product, report);
    apply_setup_files(store, product, own_directory, report);
    const std::string variable = fmt::format("ORV_GENTL_{}_PROP_INIT", product.tl_type);
    const std::string extra = gds_helper::read_string_or(gds_helper::property_store_env{}, variable, "");
    if (extra.empty()) return report;
    // A file of the other places may be missing; this one was named.
    std::error_code error;
    if (std::filesystem::status(extra, error).type() == std::filesystem::file_type::not_found)
        report.problems.push_back(
            fmt::format("Settings file '{}' of {} is not used: {}", extra, variable, error.message()));
    const gds_helper::property_store_json_rw values{extra};
    look_at(values, extra, report);
    copy_entries(values, store);
    return report;
}

std::shared_ptr<gds_helper::property_store_chain> make_property_chain(const product_constants& product,
                                                                      const std::filesystem::path& own_directory,
                                                                      settings_report& report) {
    auto map = std::make_shared<gds_helper::property_store_map>();
    const settings_report first = prop_store_init(*map, product, own_directory);
    const std::string key = settings_key(product);
    auto chain = std::make_shared<gds_helper::property_store_chain>();
    chain->append(map);
    std::vector<std::shared_ptr<gds_helper::property_store_registry_ro>> of_system;
    for (const auto root : {gds_helper::registry_root::local_machine, gds_helper::registry_root::current_user}) {
        of_system.push_back(std::make_shared<gds_helper::property_store_registry_ro>(root, key));
        look_at(of_system.back()->file(), gds_helper::registry_file(root, key), report);
    }
    for (auto each = of_system.rbegin(); each != of_system.rend(); ++each) chain->append(*each);
    report.files.insert(report.files.end(), first.files.begin(), first.files.end());
    report.problems.insert(report.problems.end(), first.problems.begin(), first.problems.end());
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
