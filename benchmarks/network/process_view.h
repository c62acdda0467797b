// What the kernel knows of a process: time and wakes by thread, descriptors by kind, memory.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <string>

namespace bench {

struct thread_use {
    std::string name; // the first 15 bytes of it
    double cpu_seconds = 0;
    uint64_t wakes = 0; // times that it gave up its processor to wait
};

[[nodiscard]] std::map<pid_t, thread_use> threads_of(pid_t process);
// "UDP socket", "unix socket", "eventfd", ... and how many of each. Files and pipes are left out.
[[nodiscard]] std::map<std::string, int> descriptors_of(pid_t process);

struct memory_use {
    double resident_mib = 0;
    double proportional_mib = 0; // shared pages count by their share
};
[[nodiscard]] memory_use memory_of(pid_t process);

} // namespace bench
