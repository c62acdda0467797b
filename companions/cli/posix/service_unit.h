// The installed service's units of systemd, and who is let in by them.
#pragma once

#include <string>

namespace cli {

// systemd listens at the one for the other.
inline constexpr const char* socket_unit = "orv-gentl-gev.socket";
inline constexpr const char* service_unit = "orv-gentl-gev.service";

// Whether systemd runs here and knows them.
[[nodiscard]] bool has_service_unit();
// Whether it was switched off for good, so that none can start it.
[[nodiscard]] bool is_unit_masked();
// What starts it, to be pasted: `verb` is of systemctl.
[[nodiscard]] std::string start_of_unit(const std::string& verb);
// Whose members the file of the unit of the socket lets in; empty where it names none, or there is no unit. Drop-ins
// are not read.
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
