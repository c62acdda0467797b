// Ctrl-C and SIGTERM as a question that a long command asks, so that it can stop the camera and sum up.
#pragma once

#include <chrono>

namespace cli {

// From here on the first such signal is remembered; a second one ends the process at once.
void watch_for_interruption();
[[nodiscard]] bool is_interrupted() noexcept;
// Throws failure(cause::interrupted) when it is.
void stop_if_interrupted();
// False, at once, when interrupted.
[[nodiscard]] bool sleep_until(std::chrono::steady_clock::time_point due);

} // namespace cli
