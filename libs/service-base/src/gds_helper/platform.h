// What gds_helper asks of the platform beyond the public headers; implemented in posix/.
#pragma once

#include <spdlog/common.h>

#include <filesystem>

namespace gds_helper::platform {

// Folders of this user's settings, of the machine's settings and of this user's cache; empty when unknown.
[[nodiscard]] std::filesystem::path user_settings_folder();
[[nodiscard]] std::filesystem::path machine_settings_folder();
[[nodiscard]] std::filesystem::path cache_folder();

// A sink to the place where the platform collects what programs have to say.
[[nodiscard]] spdlog::sink_ptr make_debug_output_sink();

// A look at a file before it is opened to write. Where it is a named pipe, that opening would wait for somebody who
// reads; who does, sees no end of the pipe for as long as this lives.
class pipe_end final {
public:
    explicit pipe_end(const std::filesystem::path& file) noexcept;
    ~pipe_end();
    pipe_end(const pipe_end&) = delete;
    pipe_end& operator=(const pipe_end&) = delete;
    [[nodiscard]] bool is_without_reader() const noexcept { return nobody_reads; }

private:
    int descriptor = -1;
    bool nobody_reads = false;
};

} // namespace gds_helper::platform
