// An archive of one deflated file, as cameras serve their documents.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

namespace camera_sim {

[[nodiscard]] std::vector<std::byte> zip_one_file(std::string_view name, std::span<const std::byte> content);

} // namespace camera_sim
