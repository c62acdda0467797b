#include <loaded_file/loaded_file.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string_view>

namespace loaded_file {

// The loader's own answer (dladdr) is the name that it was given: argv[0] for the program, which its caller chooses,
// and maybe a relative one for a library. The kernel tells what is mapped.
std::string path_of(const void* address) {
    const auto wanted = reinterpret_cast<std::uintptr_t>(address);
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        std::uintptr_t begin = 0, end = 0;
        int name = 0;
        if (std::sscanf(line.c_str(), "%" SCNxPTR "-%" SCNxPTR " %*s %*s %*s %*s %n", &begin, &end, &name) != 2 ||
            wanted < begin || wanted >= end)
            continue;
        std::string path = line.substr(static_cast<std::size_t>(name));
        if (!path.starts_with('/')) return {};              // no file, or one outside the process's root
        constexpr std::string_view replaced = " (deleted)"; // by an upgrade, say
        if (path.ends_with(replaced)) path.resize(path.size() - replaced.size());
        return path;
    }
    return {};
}

} // namespace loaded_file
