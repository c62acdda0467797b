// Folders for files that the library keeps for itself.
#pragma once

#include <filesystem>
#include <string_view>

namespace gds_helper {

// $XDG_CACHE_HOME, else ~/.cache; empty when neither is known.
[[nodiscard]] std::filesystem::path known_cache_folder();

// Known folder, then `a`, then `b`. Empty, with a warning in the log, when there is no known folder.
// Nothing is created.
[[nodiscard]] std::filesystem::path make_filesystem_property_store_path(std::string_view a, std::string_view b);
[[nodiscard]] std::filesystem::path make_win32_cache_directory_path(std::string_view a, std::string_view b);

} // namespace gds_helper
