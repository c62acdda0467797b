// The installed service's units of systemd, and who is let in by them.
#pragma once

#include <string>

namespace cli {

// systemd listens at the one for the other.
inline constexpr const char* socket_unit = "orv-gentl-gev.socket";
inline constexpr const char* service_unit = "orv-gentl-gev.service";

// Whether systemd runs here and knows them.
[[nodiscard]] bool has_service_unit();
// Whose members the unit of the socket lets in; empty where it names none, or there is no unit. Drop-ins are not read.
[[nodiscard]] std::string group_of_unit();
// Of the one in force, and where it listens; empty in the same way.
[[nodiscard]] std::string unit_file();
[[nodiscard]] std::string socket_of_unit();

enum class membership {
    none,
    in_force,
    with_next_login, // by the accounts of the system; this process is of a login from before
    no_such_group,
};
// This process's.
[[nodiscard]] membership membership_in(const std::string& group);

} // namespace cli
