#include "child_program.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern "C" char** environ;

namespace cli {

namespace {

std::string text_of(int error) { return std::system_category().message(error); }

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
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) return {{}, text_of(errno)};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
    std::vector<char*> words;
    for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    pid_t child = 0;
    const int failed = posix_spawnp(&child, words[0], &actions, nullptr, words.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (failed != 0) {
        close(ends[0]);
        return {{}, fmt::format("cannot run '{}': {}", command.front(), text_of(failed))};
    }
    if (!read_all(ends[0], answer.output, std::chrono::steady_clock::now() + longest)) {
        answer.problem = fmt::format("'{}' took longer than {} s", command.front(), longest.count());
        kill(child, SIGKILL);
    }
    close(ends[0]);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return answer;
}

} // namespace cli
