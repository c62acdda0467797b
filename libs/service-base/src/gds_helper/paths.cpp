#include <gds_helper/log.h>
#include <gds_helper/paths.h>

#include "platform.h"

#include <cerrno>

namespace gds_helper {

namespace {

std::filesystem::path below_cache(std::string_view a, std::string_view b) {
    const std::filesystem::path base = known_cache_folder();
    if (base.empty()) {
        log::get(log::logger_id::main)
            ->warn("Failed to generate cache directory due to SHGetKnownFolderPath failing with res={}.", ENOENT);
        return {};
    }
    return base / a / b;
}

} // namespace

std::filesystem::path known_cache_folder() { return platform::cache_folder(); }

std::filesystem::path make_filesystem_property_store_path(std::string_view a, std::string_view b) {
    return below_cache(a, b);
}

std::filesystem::path make_win32_cache_directory_path(std::string_view a, std::string_view b) {
    return below_cache(a, b);
}

} // namespace gds_helper
