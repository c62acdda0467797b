// This library itself: the path of its file, and its hold on being loaded.
#include <gentl_producer/Library.h>

#include <loaded_file/loaded_file.h>

#include <dlfcn.h>

namespace GenTL::Producer {

namespace {

// Any address inside this library will do.
constexpr char anchor = 0;

} // namespace

std::string library_path() {
    // Asked first as the library is loaded: later the system may not tell any more.
    static const std::string path = loaded_file::path_of(&anchor);
    return path;
}

void* hold_library() noexcept {
    Dl_info info{};
    if (dladdr(&anchor, &info) == 0 || info.dli_fname == nullptr) return nullptr;
    return dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD); // by the loader's own name for it
}

void release_library(void* held) noexcept {
    if (held != nullptr) dlclose(held);
}

} // namespace GenTL::Producer
