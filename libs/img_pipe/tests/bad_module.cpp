// Modules of kernels that are no good, one for each BAD_MODULE_... that this is compiled with.
#include <img_pipe/filter_module.h>

#include <fstream>

using namespace img_pipe;

extern "C" __attribute__((visibility("default"))) filter_module_getter pixkit_img_filter_get_function_address();

#if defined(BAD_MODULE_no_export)
extern "C" __attribute__((visibility("default"))) int something_else();
extern "C" int something_else() { return 1; }
#elif defined(BAD_MODULE_null_result)
extern "C" filter_module_getter pixkit_img_filter_get_function_address() { return nullptr; }
#elif defined(BAD_MODULE_held_loader)
// Calls the program's function while the loader holds its own lock, as constructors of any library may.
extern "C" void while_loading();
__attribute__((constructor)) static void constructed() { while_loading(); }
extern "C" filter_module_getter pixkit_img_filter_get_function_address() { return nullptr; }
#elif defined(BAD_MODULE_planted)
// Tells in the current directory that it was loaded.
__attribute__((constructor)) static void constructed() { const std::ofstream mark("loaded"); }
extern "C" filter_module_getter pixkit_img_filter_get_function_address() { return nullptr; }
#elif defined(BAD_MODULE_null_record)
extern "C" filter_module_getter pixkit_img_filter_get_function_address() {
    return [] { return static_cast<const filter_module*>(nullptr); };
}
#elif defined(BAD_MODULE_above_processor)
// It claims a level that no processor reports, and kernels for everything that end the process.
extern "C" filter_module_getter pixkit_img_filter_get_function_address() {
    return [] {
        static const filter_module module = [] {
            filter_module m{cpu::level_avx2 | 0x80000000U, {}, nullptr, 0};
            for (kernel_lookup& lookup : m.lookup)
                lookup = [](img_type, img_type) -> kernel_fn { return [](const kernel_call&) { __builtin_trap(); }; };
            return m;
        }();
        return &module;
    };
}
#endif
