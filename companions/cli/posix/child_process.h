// A program that runs beside this one and ends with it.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace cli {

// Thread-bound. The child is asked to end (SIGTERM) when this goes, and by the kernel when this process does.
class child_process final {
public:
    // Its standard output and error output go to this object. Throws failure(cause::failed) when it cannot run.
    explicit child_process(const std::vector<std::string>& command);
    ~child_process();
    child_process(const child_process&) = delete;
    child_process& operator=(const child_process&) = delete;

    // False when it ended or the time passed before the text came.
    [[nodiscard]] bool wait_for_output(const std::string& text, std::chrono::milliseconds longest);
    [[nodiscard]] const std::string& output() const noexcept { return said; }
    // As far as the waits saw.
    [[nodiscard]] bool has_ended() const noexcept { return ended; }

private:
    int process = -1;
    int pipe_end = -1;
    std::string said; // what came during the waits
    bool ended = false;
};

} // namespace cli
