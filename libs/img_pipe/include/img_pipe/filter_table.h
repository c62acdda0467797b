// The processor's mask, the modules that serve it, and the loadable module.
#pragma once
#include <img_pipe/filter_module.h>

#include <string>
#include <string_view>
#include <vector>

namespace img_pipe {

std::uint32_t cpu_mask(); // of this processor and operating system; computed once, thread-safe
std::string_view cpu_level_name(std::uint32_t mask);
std::uint32_t built_in_level(); // mask of the best kernels that need no module: SSE4's, NEON's, or the plain level's

using filter_table = std::vector<filter_module>; // best first

// Every module with (required_cpu & mask) == required_cpu: loaded ones first, the plain one last.
filter_table get_filter_table(std::uint32_t mask);
// The first module's non-null kernel; null when none has one.
kernel_fn find_kernel(const filter_table& table, kernel_slot slot, const img_descriptor& destination,
                      const img_descriptor& source);

enum class load_result { loaded, already_loaded, missing, no_export, null_result };
// Loads a module of kernels, which runs its code; once per path and process, kept until the process ends. `flags` is
// not used.
load_result load_filter_library(const std::string& path, std::uint32_t flags);
inline constexpr std::string_view filter_library_name = "orv-gentl-driver-gigevision-imgfilter_avx2.so";
// Its absolute path, in the folder of the library (or program) that holds this code; empty where that is unknown.
std::string default_filter_library();

} // namespace img_pipe
