// Documents in a folder of this host.
#pragma once

#include <expected>
#include <string>
#include <string_view>
#include <system_error>

namespace gvcp_master {

// A regular file below the folder, reached without following a link. `name` is relative to the folder, or absolute and
// within it. At most GenICam::largest_document bytes. Reentrant.
[[nodiscard]] std::expected<std::string, std::error_code> read_file_below(const std::string& folder,
                                                                          std::string_view name);

} // namespace gvcp_master
