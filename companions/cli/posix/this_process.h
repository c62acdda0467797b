// This process, its user and its host.
#pragma once

#include <string>

namespace cli {

// User and system time of all threads, seconds.
[[nodiscard]] double cpu_seconds();
[[nodiscard]] int process_id() noexcept;
[[nodiscard]] bool is_root() noexcept;
// Empty where the system does not know.
[[nodiscard]] std::string user_name();
[[nodiscard]] std::string user_home(); // by the accounts of the system, not by $HOME
[[nodiscard]] std::string host_name();

} // namespace cli
