#include "process_list.h"

#include "this_process.h"

#include <fmt/format.h>

#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <unistd.h>

namespace cli {

std::string kernel_text(const std::string& path) {
    std::ifstream file{path};
    std::ostringstream text; // an iterator would throw
    text << file.rdbuf();
    return text.str();
}

std::string start_time_of(int pid) {
    const std::string stat = kernel_text(fmt::format("/proc/{}/stat", pid));
    const size_t after_name = stat.rfind(')');
    const std::string boot = kernel_text("/proc/stat");
    const size_t at = boot.find("btime ");
    if (after_name == stat.npos || at == boot.npos) return {};
    std::istringstream rest{stat.substr(after_name + 1)};
    std::string word;
    for (int field = 3; field <= 22 && rest >> word; ++field) {
    } // the 22nd is the start, in ticks since the boot
    int64_t ticks = 0, booted = 0;
    std::from_chars(word.data(), word.data() + word.size(), ticks);
    std::from_chars(boot.data() + at + 6, boot.data() + boot.size(), booted);
    return local_time(booted + ticks / sysconf(_SC_CLK_TCK));
}

std::vector<std::string> others_with_file(const std::string& name) {
    std::vector<std::string> lines;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator{"/proc", ignored}) {
        const std::string pid = entry.path().filename();
        if (pid.find_first_not_of("0123456789") != pid.npos || pid == std::to_string(getpid())) continue;
        if (kernel_text("/proc/" + pid + "/maps").find('/' + name + '\n') == std::string::npos) continue;
        std::string program = kernel_text("/proc/" + pid + "/comm");
        if (!program.empty()) program.pop_back();
        const std::string since = start_time_of(std::atoi(pid.c_str()));
        lines.push_back(fmt::format("{} (pid {}{})", program, pid, since.empty() ? "" : ", running since " + since));
    }
    return lines;
}

} // namespace cli
