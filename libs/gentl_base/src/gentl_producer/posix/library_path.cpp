#include <gentl_producer/Library.h>

#include <dlfcn.h>

#include <cstdlib>
#include <memory>

namespace GenTL::Producer {

namespace {

// Any address inside this library will do.
constexpr char anchor = 0;

} // namespace

std::string library_path() {
    Dl_info info{};
    if (dladdr(&anchor, &info) == 0 || info.dli_fname == nullptr) return {};
    // The loader keeps the name as it was given to dlopen, possibly relative to a directory left since.
    const std::unique_ptr<char, decltype(&std::free)> full{realpath(info.dli_fname, nullptr), &std::free};
    return full ? full.get() : info.dli_fname;
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
