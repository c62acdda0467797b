#include "child_process.h"

#include "../failure.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace cli {

child_process::child_process(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        throw failure(cause::failed,
                      fmt::format("No pipe to '{}': {}", command.front(), std::system_category().message(errno)));
    const pid_t parent = getpid();
    process = fork();
    if (process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != parent) _exit(127); // it ended before it could be watched
        dup2(ends[1], STDOUT_FILENO);
        dup2(ends[1], STDERR_FILENO);
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    const int error = errno;
    close(ends[1]);
    pipe_end = ends[0];
    if (process >= 0) return;
    close(pipe_end);
    throw failure(cause::failed,
                  fmt::format("Cannot start '{}': {}", command.front(), std::system_category().message(error)));
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
        if (size <= 0) return false;
        said.append(part.data(), static_cast<size_t>(size));
    }
    return true;
}

} // namespace cli
