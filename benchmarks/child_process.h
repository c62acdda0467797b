// A program that a benchmark needs beside itself.
#pragma once

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace bench {

// Ends with this object. Its first line of output has been read when the constructor returns.
class child_process final {
public:
    explicit child_process(const std::vector<std::string>& command) {
        int pipe_ends[2];
        if (pipe(pipe_ends) != 0) throw std::runtime_error("no pipe");
        std::vector<char*> arguments;
        for (const auto& each : command) arguments.push_back(const_cast<char*>(each.c_str()));
        arguments.push_back(nullptr);
        pid = fork();
        if (pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(pipe_ends[1], STDOUT_FILENO);
            execv(arguments[0], arguments.data());
            _exit(127);
        }
        close(pipe_ends[1]);
        char byte = 0;
        bool ready = false;
        while (!ready && read(pipe_ends[0], &byte, 1) == 1) ready = byte == '\n';
        output = pipe_ends[0]; // stays open: the program may say more
        if (!ready) throw std::runtime_error(command.front() + " does not start");
    }
    ~child_process() { end(SIGTERM); }
    child_process(const child_process&) = delete;
    child_process& operator=(const child_process&) = delete;
    [[nodiscard]] int id() const noexcept { return pid; }
    void end(int signal_number) {
        if (pid <= 0) return;
        kill(pid, signal_number);
        waitpid(pid, nullptr, 0);
        pid = -1;
        close(output);
    }

private:
    pid_t pid = -1;
    int output = -1;
};

} // namespace bench
