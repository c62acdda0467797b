#include "../kernels/module.h"
#include "filter_library.h"

#include <loaded_file/loaded_file.h>

#include <algorithm>
#include <atomic>
#include <mutex>

namespace img_pipe {

namespace {

// The modules loaded into this process. They stay until it ends: kernels may be running on any thread. This list goes
// with the library, when no thread of it runs any more.
struct loaded_modules {
    [[nodiscard]] bool has(const std::string& path) const { return std::ranges::find(paths, path) != paths.end(); }

    std::mutex lock; // guards the lists; a leaf
    std::vector<std::string> paths;
    std::vector<void*> libraries;
    std::vector<filter_module_getter> getters;
};

loaded_modules& loaded() {
    static loaded_modules modules;
    return modules;
}

void add(filter_table& table, std::uint32_t mask, const filter_module* module) {
    // A record that needs nothing, not even the plain level, was never filled in.
    if (module != nullptr && (module->required_cpu & cpu::c) != 0 &&
        (module->required_cpu & mask) == module->required_cpu)
        table.push_back(*module);
}

} // namespace

load_result load_filter_library(const std::string& path, std::uint32_t) {
    if (path.empty()) return load_result::missing; // the loader would take it for the program
    loaded_modules& modules = loaded();
    {
        const std::lock_guard guard(modules.lock);
        if (modules.has(path)) return load_result::already_loaded;
    }
    // Without our lock: the loader has one of its own, and runs foreign code under it that may want a table.
    void* library = open_library(path);
    if (library == nullptr) return load_result::missing;
    const filter_export get = find_filter_export(library);
    const filter_module_getter getter = get == nullptr ? nullptr : get();
    if (getter == nullptr || getter() == nullptr) {
        close_library(library);
        return get == nullptr ? load_result::no_export : load_result::null_result;
    }
    {
        const std::lock_guard guard(modules.lock);
        if (!modules.has(path)) {
            // Room first: a path is listed with its module or not at all.
            modules.libraries.reserve(modules.libraries.size() + 1);
            modules.getters.reserve(modules.getters.size() + 1);
            modules.paths.push_back(path);
            modules.libraries.push_back(library);
            modules.getters.push_back(getter);
            return load_result::loaded;
        }
    }
    close_library(library); // another thread was quicker; its handle keeps the module
    return load_result::already_loaded;
}

std::string default_filter_library() {
    static constexpr char here = 0;
    const std::string file = loaded_file::path_of(&here);
    return file.empty() ? file : file.substr(0, file.rfind('/') + 1).append(filter_library_name);
}

std::uint32_t built_in_level() {
    const filter_module* vectors = vector_module();
    return vectors == nullptr ? cpu::c : vectors->required_cpu;
}

filter_table get_filter_table(std::uint32_t mask) {
    // No once_flag: who waited for it would wait for the loader's lock. Two that come first both try, and one is kept.
    static std::atomic<bool> tried{false};
    if ((mask & cpu::avx2) != 0 && !tried) {
        (void)load_filter_library(default_filter_library(), 0);
        tried = true;
    }
    std::vector<filter_module_getter> getters;
    {
        loaded_modules& modules = loaded();
        const std::lock_guard guard(modules.lock);
        getters = modules.getters;
    }
    filter_table table;
    for (const filter_module_getter getter : getters) add(table, mask, getter());
    add(table, mask, vector_module());
    add(table, mask, plain_module());
    return table;
}

kernel_fn find_kernel(const filter_table& table, kernel_slot slot, const img_descriptor& destination,
                      const img_descriptor& source) {
    const img_type to = type_of(destination), from = type_of(source);
    const auto index = static_cast<std::size_t>(slot) - 1;
    for (const filter_module& module : table) {
        if (module.lookup[index] == nullptr) continue;
        if (const kernel_fn found = module.lookup[index](to, from)) return found;
    }
    return nullptr;
}

} // namespace img_pipe
