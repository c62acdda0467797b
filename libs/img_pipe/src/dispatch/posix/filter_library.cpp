#include "../filter_library.h"

#include <dlfcn.h>

namespace img_pipe {

void* open_library(const std::string& path) { return dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL); }

filter_export find_filter_export(void* library) {
    return reinterpret_cast<filter_export>(dlsym(library, filter_export_name));
}

void close_library(void* library) { dlclose(library); }

} // namespace img_pipe
