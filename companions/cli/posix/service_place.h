// Why no service answers: where its socket should lie, what lies there, and whose it is.
#pragma once

#include <string>

namespace cli {

// The folder in which the library looks for the socket of its service.
[[nodiscard]] std::string service_folder();
// Whether the service there is, or would be, the one that systemd starts, and not one in a folder of somebody's own.
[[nodiscard]] bool uses_service_unit();

struct explanation {
    std::string text, remedy; // sentences
};
// `reason` is the producer's text, which names the socket in "service-pipe '...'".
[[nodiscard]] explanation why_no_service(const std::string& reason);

} // namespace cli
