#include "child_process.h"

#include "../failure/failure.h"
#include "program_start.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <csignal>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace cli {

child_process::child_process(const std::vector<std::string>& command) {
    const started_program started = start_program(command);
    if (started.error)
        throw failure(cause::failed, fmt::format("Cannot start '{}': {}", command.front(), started.error.message()));
    process = started.process;
    pipe_end = started.output;
}

child_process::~child_process() {
    close(pipe_end);
    kill(process, SIGTERM);
    while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) continue;
}

bool child_process::wait_for_output(const std::string& text, std::chrono::milliseconds longest) {
    const auto end = std::chrono::steady_clock::now() + longest;
    while (said.find(text) == said.npos) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        pollfd entry{pipe_end, POLLIN, 0};
        const int ready = left.count() <= 0 ? 0 : poll(&entry, 1, static_cast<int>(left.count()));
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) return false;
        std::array<char, 1024> part{};
        const ssize_t size = read(pipe_end, part.data(), part.size());
        ended = size == 0;
        if (size <= 0) return false;
        said.append(part.data(), static_cast<size_t>(size));
    }
    return true;
}

} // namespace cli
