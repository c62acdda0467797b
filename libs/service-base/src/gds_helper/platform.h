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

// Whoever opens such a one to write waits for somebody who reads.
[[nodiscard]] bool is_pipe_without_reader(const std::filesystem::path& file) noexcept;

} // namespace gds_helper::platform
