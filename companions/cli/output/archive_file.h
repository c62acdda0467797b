// Files under names, as one gzipped tar archive or as a folder.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace cli {

struct named_content {
    std::string name; // with '/' between folders
    std::string content;
};

// There whole or not at all: a name that ends in ".tar.gz" or ".tgz" becomes an archive, whose files lie in a folder of
// its name; any other a folder, which must not be there yet. Throws failure(cause::output).
void write_collection(const std::filesystem::path& path, const std::vector<named_content>& files);

} // namespace cli
