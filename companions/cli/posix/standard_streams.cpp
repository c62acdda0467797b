#include "standard_streams.h"

#include <csignal>
#include <initializer_list>

#include <fcntl.h>
#include <unistd.h>

namespace cli {

void secure_standard_streams() {
    std::signal(SIGPIPE, SIG_IGN);
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) >= 0) continue;
        // Takes the lowest free number, which is this one; open for reading only, it refuses writes.
        static_cast<void>(open("/dev/null", O_RDONLY));
    }
}

bool errors_are_seen_on_a_terminal() { return isatty(STDERR_FILENO) != 0; }

bool output_is_a_terminal() { return isatty(STDOUT_FILENO) != 0; }

} // namespace cli
