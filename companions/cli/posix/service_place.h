// Why no service answers: where its socket should lie, what lies there, and whose it is.
#pragma once

#include <string>

namespace cli {

// The folder in which the library looks for the socket of its service.
[[nodiscard]] std::string service_folder();

// The socket that systemd listens at for the installed service. It is in the system's folder.
inline constexpr const char* service_unit = "orv-gentl-gev.socket";
// Whether systemd runs here and knows it.
[[nodiscard]] bool has_service_unit();

// Sentences with the remedy. `reason` is the producer's text, which names the socket in "service-pipe '...'"; for a
// producer that does not, only that.
[[nodiscard]] std::string why_no_service(const std::string& reason);

} // namespace cli
