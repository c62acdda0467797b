#include "shared_library.h"

#include <dlfcn.h>
#include <elf.h>

#include <filesystem>
#include <fstream>

namespace cli {

namespace {

// A file that was cut short is mapped by the loader all the same, which then dies of a bus error. The table of sections
// ends the files that linkers write.
bool is_cut_short(const std::string& path) {
    Elf64_Ehdr head{};
    std::ifstream file{path, std::ios::binary};
    if (!file.read(reinterpret_cast<char*>(&head), sizeof head)) return false; // the loader has words for it
    if (std::string_view{reinterpret_cast<const char*>(head.e_ident), SELFMAG} != ELFMAG) return false;
    std::error_code unknown;
    const auto size = std::filesystem::file_size(path, unknown);
    return !unknown && head.e_shoff + std::uint64_t{head.e_shnum} * head.e_shentsize > size;
}

} // namespace

void shared_library::unload::operator()(void* handle) const { dlclose(handle); }

std::expected<shared_library, std::string> shared_library::load(const std::string& path) {
    if (is_cut_short(path)) return std::unexpected{"the file is cut short: install it again"};
    shared_library loaded;
    loaded.file.reset(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL));
    if (!loaded.file) return std::unexpected<std::string>(dlerror());
    return loaded;
}

void* shared_library::find(const char* name) const { return dlsym(file.get(), name); }

} // namespace cli
