#include "program_start.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

namespace cli {

namespace {

using pipe_ends = std::array<int, 2>; // for reading, for writing

std::error_code last_error() { return {errno, std::system_category()}; }

// In the child, where nothing may be allocated. What comes back is why it cannot run.
int become(char* const* arguments, const char* elsewhere, pid_t parent, int output) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) return ESRCH; // it ended before it could be watched
    const int nothing = open("/dev/null", O_RDONLY);
    if (nothing < 0 || dup2(nothing, STDIN_FILENO) < 0 || dup2(output, STDOUT_FILENO) < 0 ||
        dup2(output, STDERR_FILENO) < 0)
        return errno;
    if (nothing > STDERR_FILENO) close(nothing);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr); // NOLINT(concurrency-mt-unsafe): a child has one thread
    execvp(arguments[0], arguments);
    if (errno == ENOENT && elsewhere != nullptr) execv(elsewhere, arguments);
    return errno;
}

} // namespace

started_program start_program(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    const std::string elsewhere = "/usr/sbin/" + command.front();
    const bool is_named = command.front().find('/') == std::string::npos;
    started_program started;
    pipe_ends output{}, problem{}; // the second ends by itself when the program runs
    if (pipe2(output.data(), O_CLOEXEC) != 0) {
        started.error = last_error();
        return started;
    }
    if (pipe2(problem.data(), O_CLOEXEC) != 0) {
        started.error = last_error();
        for (const int end : output) close(end);
        return started;
    }
    const pid_t parent = getpid();
    started.process = fork();
    if (started.process == 0) {
        const int why = become(arguments.data(), is_named ? elsewhere.c_str() : nullptr, parent, output[1]);
        static_cast<void>(!write(problem[1], &why, sizeof why));
        _exit(127);
    }
    if (started.process < 0) started.error = last_error();
    close(output[1]);
    close(problem[1]);
    int why = 0;
    ssize_t size = 0;
    while ((size = read(problem[0], &why, sizeof why)) < 0 && errno == EINTR) continue;
    close(problem[0]);
    if (started.process > 0 && size == ssize_t{sizeof why}) {
        started.error = {why, std::system_category()};
        while (waitpid(started.process, nullptr, 0) < 0 && errno == EINTR) continue;
        started.process = -1;
    }
    started.output = output[0];
    if (started.error) {
        close(output[0]);
        started.output = -1;
    }
    return started;
}

} // namespace cli
