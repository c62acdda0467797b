#include <loaded_file/loaded_file.h>

#include <dlfcn.h>
#include <link.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string_view>

namespace loaded_file {

namespace {

// Takes no descriptor. The program has no name here, as it would be argv[0], which its caller chooses; and a library's
// relative one may mean another file by now.
std::string path_by_the_loader(const void* address) {
    Dl_info info{};
    link_map* object = nullptr;
    if (dladdr1(address, &info, reinterpret_cast<void**>(&object), RTLD_DL_LINKMAP) == 0 || object == nullptr ||
        object->l_name == nullptr || *object->l_name != '/')
        return {};
    const std::unique_ptr<char, decltype(&std::free)> full{realpath(object->l_name, nullptr), &std::free};
    return full ? full.get() : "";
}

} // namespace

// The loader knows the name that it was given, the kernel what is mapped: the loader is asked where the kernel does not
// tell. That is so for want of a descriptor or without /proc. By the thread, as the process's own list is empty when
// its main thread has ended.
std::string path_of(const void* address) {
    const auto wanted = reinterpret_cast<std::uintptr_t>(address);
    std::ifstream maps("/proc/thread-self/maps");
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
    return path_by_the_loader(address);
}

} // namespace loaded_file
