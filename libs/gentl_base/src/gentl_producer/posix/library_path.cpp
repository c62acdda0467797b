#include <gentl_producer/Library.h>

#include <dlfcn.h>

#include <cstdlib>
#include <memory>

namespace GenTL::Producer {

std::string library_path() {
    Dl_info info{};
    // Any address inside this library will do.
    static const char anchor = 0;
    if (dladdr(&anchor, &info) == 0 || info.dli_fname == nullptr) return {};
    // The loader keeps the name as it was given to dlopen, possibly relative to a directory left since.
    const std::unique_ptr<char, decltype(&std::free)> full{realpath(info.dli_fname, nullptr), &std::free};
    return full ? full.get() : info.dli_fname;
}

} // namespace GenTL::Producer
