#include <gds_shared/log_init.h>

namespace gds_shared {

namespace log = gds_helper::log;

namespace {

constexpr int default_level = 5;

int level_setting(const gds_helper::property_store_ro& store, const std::string& key) {
    const std::int64_t level = gds_helper::read_int64_or(store, key, default_level);
    return level >= 0 && level <= log::level_off ? static_cast<int>(level) : default_level;
}

} // namespace

void log_init(const gds_helper::property_store_ro& store, log::log_control& control, bool as_service) {
    control.set_role(as_service);
    control.set_level(level_setting(store, "log_level"));
    control.set_flush_level(level_setting(store, "log_flush_level"));

    control.enable_console(
        gds_helper::read_bool_or(store, as_service ? "service_log_to_console" : "cti_log_to_console", false));
    control.enable_debug_output(gds_helper::read_bool_or(store, "log_to_outputdebug", false));
    control.set_file(gds_helper::read_string_or(store, as_service ? "service_log_file" : "cti_log_file", ""));

    for (const auto& row : log::extra_loggers) {
        std::int64_t level = 0;
        if (store.read_int64(row.level_key, level)) continue;
        if (level == log::level_default) {
            control.set_level(row.id, row.default_level);
        } else if (level < 0 || level > log::level_default) {
            log::get(log::logger_id::main)->error("Failed to set log level for logger '{}' to '{}'", row.name, level);
        } else {
            control.set_level(row.id, static_cast<int>(level));
        }
    }
}

} // namespace gds_shared
