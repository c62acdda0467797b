#include "child_program.h"

#include "program_start.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <csignal>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace cli {

namespace {

// Until the other end is closed or time is over; whether it was closed.
bool read_all(int descriptor, std::string& into, std::chrono::steady_clock::time_point until) {
    std::array<char, 65536> part{};
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
        pollfd waits{descriptor, POLLIN, 0};
        if (left.count() <= 0 || poll(&waits, 1, static_cast<int>(left.count())) == 0) return false;
        const ssize_t got = read(descriptor, part.data(), part.size());
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return true;
        into.append(part.data(), static_cast<size_t>(got));
    }
}

} // namespace

program_answer run_program(const std::vector<std::string>& command, std::chrono::seconds longest) {
    program_answer answer;
    const started_program started = start_program(command);
    if (started.error) {
        answer.problem = fmt::format("cannot run '{}': {}", command.front(), started.error.message());
        return answer;
    }
    if (!read_all(started.output, answer.output, std::chrono::steady_clock::now() + longest)) {
        answer.problem = fmt::format("'{}' took longer than {} s", command.front(), longest.count());
        kill(started.process, SIGKILL);
    }
    close(started.output);
    while (waitpid(started.process, nullptr, 0) < 0 && errno == EINTR) continue;
    return answer;
}

} // namespace cli
