#include "process_view.h"

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

namespace bench {

namespace {

namespace fs = std::filesystem;

fs::path folder_of(pid_t process) { return "/proc/" + std::to_string(process); }

// The value behind "name:" in a file of such lines; 0 where there is none.
uint64_t value_in(const fs::path& file, const std::string& name) {
    std::ifstream lines{file};
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(name + ":")) return std::stoull(line.substr(name.size() + 1));
    }
    return 0;
}

// Inodes of a table of sockets, such as "net/udp"; `column` counts from 0.
std::set<std::string> inodes_in(const fs::path& table, int column) {
    std::set<std::string> found;
    std::ifstream lines{table};
    std::string line;
    std::getline(lines, line); // the heading
    while (std::getline(lines, line)) {
        std::istringstream fields{line};
        std::string field;
        for (int i = 0; i <= column; ++i) fields >> field;
        found.insert(field);
    }
    return found;
}

} // namespace

std::map<pid_t, thread_use> threads_of(pid_t process) {
    std::map<pid_t, thread_use> found;
    std::error_code ended; // a thread may end meanwhile
    for (const auto& entry : fs::directory_iterator{folder_of(process) / "task", ended}) {
        thread_use thread;
        std::ifstream name{entry.path() / "comm"};
        if (!std::getline(name, thread.name)) continue;
        uint64_t nanoseconds = 0;
        std::ifstream{entry.path() / "schedstat"} >> nanoseconds;
        thread.cpu_seconds = static_cast<double>(nanoseconds) * 1e-9;
        thread.wakes = value_in(entry.path() / "status", "voluntary_ctxt_switches");
        found[std::stoi(entry.path().filename())] = thread;
    }
    return found;
}

std::map<std::string, int> descriptors_of(pid_t process) {
    const fs::path folder = folder_of(process);
    const auto udp = inodes_in(folder / "net/udp", 9);
    const auto unix_domain = inodes_in(folder / "net/unix", 6);
    std::map<std::string, int> found;
    std::error_code ended;
    for (const auto& entry : fs::directory_iterator{folder / "fd", ended}) {
        const std::string target = fs::read_symlink(entry.path(), ended);
        if (target.starts_with("socket:[")) {
            const std::string inode = target.substr(8, target.size() - 9);
            ++found[udp.contains(inode) ? "UDP socket" : unix_domain.contains(inode) ? "unix socket" : "other socket"];
        } else if (target.starts_with("anon_inode:[")) {
            ++found[target.substr(12, target.size() - 13)];
        }
    }
    return found;
}

memory_use memory_of(pid_t process) {
    const fs::path file = folder_of(process) / "smaps_rollup";
    return {static_cast<double>(value_in(file, "Rss")) / 1024, static_cast<double>(value_in(file, "Pss")) / 1024};
}

} // namespace bench
