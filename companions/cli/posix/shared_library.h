// A shared library loaded while the program runs.
#pragma once

#include <expected>
#include <memory>
#include <string>

namespace cli {

class shared_library final {
public:
    shared_library() = default;
    // The system's words when it cannot be loaded.
    [[nodiscard]] static std::expected<shared_library, std::string> load(const std::string& path);
    // Null when there is none of that name.
    [[nodiscard]] void* find(const char* name) const;

private:
    struct unload {
        void operator()(void* handle) const;
    };
    std::unique_ptr<void, unload> file;
};

} // namespace cli
