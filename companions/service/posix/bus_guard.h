// Keeps the service alive when a client shrinks memory that it shares with the service.
#pragma once

namespace service {

// Once, at the start of the program, before any thread: it takes the process's SIGBUS.
void install_bus_guard();

} // namespace service
