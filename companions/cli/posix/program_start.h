// The start of another program.
#pragma once

#include <string>
#include <system_error>
#include <vector>

namespace cli {

struct started_program {
    int process = -1;
    int output = -1;       // the reading end of a pipe that its standard output and error output go to; the caller's
    std::error_code error; // set: it does not run, and neither of the above is there
};

// Looks along $PATH, then in /usr/sbin, which many users' lacks. The program has no input, no signals blocked, and is
// asked to end (SIGTERM) when the thread that started it does. Reentrant.
[[nodiscard]] started_program start_program(const std::vector<std::string>& command);

} // namespace cli
