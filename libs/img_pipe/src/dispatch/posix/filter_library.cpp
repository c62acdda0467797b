#include "../filter_library.h"

#include <dlfcn.h>

#include <cstdlib>
#include <memory>

namespace img_pipe {

void* open_library(const std::string& path) { return dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL); }

filter_export find_filter_export(void* library) {
    return reinterpret_cast<filter_export>(dlsym(library, filter_export_name));
}

void close_library(void* library) { dlclose(library); }

std::string folder_of_this_library() {
    Dl_info info{};
    static const char anchor = 0;
    if (dladdr(&anchor, &info) == 0 || info.dli_fname == nullptr) return {};
    const std::unique_ptr<char, decltype(&std::free)> full{realpath(info.dli_fname, nullptr), &std::free};
    std::string path = full ? full.get() : info.dli_fname;
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string{} : path.substr(0, slash);
}

} // namespace img_pipe
