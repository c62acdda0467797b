#include <gds_gentl_producer/file_dialog.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <string>

namespace gds_producer {

using namespace GenTL;

Error save_file(const gds_helper::property_store_ro& settings, std::string_view default_name,
                std::string_view content) {
    const std::string folder = gds_helper::read_string_or(settings, "cti_store_directory", {});
    if (folder.empty()) {
        return {GC_ERR_NOT_AVAILABLE, "No folder to store '{}': set property cti_store_directory.", default_name};
    }
    std::string name{default_name};
    std::ranges::replace_if(
        name, [](unsigned char c) { return std::isalnum(c) == 0 && c != '-' && c != '_' && c != '.'; }, '_');
    const std::filesystem::path path = std::filesystem::path{folder} / name;
    std::ofstream file{path, std::ios::binary | std::ios::trunc};
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    if (!file) return {GC_ERR_IO, "Failed to write file '{}'.", path.string()};
    return success();
}

std::expected<std::optional<std::string>, Error> show_file_open_dialog(std::initializer_list<file_filter>,
                                                                       const std::string&) {
    return std::unexpected(Error{GC_ERR_NOT_AVAILABLE, "There is no window to choose a file in: write its path."});
}

} // namespace gds_producer
