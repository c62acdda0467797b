// What the kernel tells of a process.
#pragma once

#include <fstream>
#include <string>

namespace test_support {

// The count of a line like "VmRSS:"; 0 when there is none.
inline long status_kib(int pid, const std::string& name) {
    std::ifstream status{"/proc/" + std::to_string(pid) + "/status"};
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(name)) return std::stol(line.substr(name.size()));
    }
    return 0;
}

} // namespace test_support
