// The file operations that a consumer's window would offer. The ones here have no window.
#pragma once

#include <gds_helper/property_store.h>
#include <gentl_producer/Error.h>

#include <expected>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace gds_producer {

// Writes the bytes under the default name into the folder of the property "cti_store_directory";
// GC_ERR_NOT_AVAILABLE when that is not set. Characters that a file name should not have become '_'.
[[nodiscard]] GenTL::Error save_file(const gds_helper::property_store_ro& settings, std::string_view default_name,
                                     std::string_view content);

struct file_filter {
    std::string_view name;
    std::string_view pattern;
};
// The path that the user chose; nothing when they cancelled. Without a window it always fails with
// GC_ERR_NOT_AVAILABLE.
[[nodiscard]] std::expected<std::optional<std::string>, GenTL::Error>
show_file_open_dialog(std::initializer_list<file_filter> filters, const std::string& initial_path);

} // namespace gds_producer
