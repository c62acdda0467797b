// This process, its user and its host.
#pragma once

#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

namespace cli {

// User and system time of all threads, seconds.
[[nodiscard]] double cpu_seconds();
[[nodiscard]] int process_id() noexcept;
[[nodiscard]] bool is_root() noexcept;
// Empty where the system does not know.
[[nodiscard]] std::string user_name();
[[nodiscard]] std::string user_home(); // by the accounts of the system, not by $HOME
[[nodiscard]] std::string host_name();
// The file this process was started from.
[[nodiscard]] std::filesystem::path program_file();
// "NAME=VALUE", each.
[[nodiscard]] std::vector<std::string> environment();
// For children, and for what this process reads later: before there are other threads.
void set_variable(const char* name, const std::string& value);
// A new folder for this user alone, named by `stem` and more. Throws failure(cause::output).
[[nodiscard]] std::filesystem::path make_folder(const std::filesystem::path& within, const std::string& stem);
// Whether this user may write in the folder, or the file.
[[nodiscard]] bool may_write(const std::filesystem::path& path);
// "2026-01-31 12:34:56", of this place.
[[nodiscard]] std::string local_time(std::time_t time);

} // namespace cli
