// Why no service answers: where its socket should lie, what lies there, and whose it is.
#pragma once

#include <string>

namespace cli {

// The folder in which the library looks for the socket of its service.
[[nodiscard]] std::string service_folder();

// Sentences with the remedy. `reason` is the producer's text, which names the socket in "service-pipe '...'"; for a
// producer that does not, only that.
[[nodiscard]] std::string why_no_service(const std::string& reason);

} // namespace cli
