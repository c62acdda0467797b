#include "shared_library.h"

#include <dlfcn.h>

namespace cli {

void shared_library::unload::operator()(void* handle) const { dlclose(handle); }

std::expected<shared_library, std::string> shared_library::load(const std::string& path) {
    shared_library loaded;
    loaded.file.reset(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL));
    if (!loaded.file) return std::unexpected<std::string>(dlerror());
    return loaded;
}

void* shared_library::find(const char* name) const { return dlsym(file.get(), name); }

} // namespace cli
