// A folder of a test's own, which goes with the object, and how much is in one.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>

namespace test_support {

class temporary_folder {
public:
    temporary_folder() {
        std::string name = std::filesystem::temp_directory_path() / "orv-test-XXXXXX";
        path = ::mkdtemp(name.data());
    }
    ~temporary_folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    temporary_folder(const temporary_folder&) = delete;
    temporary_folder& operator=(const temporary_folder&) = delete;

    std::filesystem::path path;
};

// Where this process and its children make and look for a service's socket.
class runtime_folder : public temporary_folder {
public:
    runtime_folder() { setenv("ORV_GENTL_RUNTIME_DIR", path.c_str(), 1); }
};

inline size_t entries_of(const std::filesystem::path& folder) {
    using entries = std::filesystem::directory_iterator;
    return static_cast<size_t>(std::distance(entries{folder}, entries{}));
}

} // namespace test_support
