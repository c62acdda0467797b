// Archives of deflated files, as cameras serve their documents.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

namespace camera_sim {

struct zip_member {
    std::string_view name;
    std::span<const std::byte> content;
};
[[nodiscard]] std::vector<std::byte> zip_files(std::span<const zip_member> members);
[[nodiscard]] std::vector<std::byte> zip_one_file(std::string_view name, std::span<const std::byte> content);

} // namespace camera_sim
