// What the service tells a service manager that waits for it, as sd_notify(3) describes.
#pragma once

namespace service {

// "READY=1" and the like, as one datagram to the socket that NOTIFY_SOCKET names; nothing without it. A manager that
// cannot be told is no reason to end.
void tell_service_manager(const char* state) noexcept;

} // namespace service
