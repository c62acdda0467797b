// The operating system's side of loading a module of kernels.
#pragma once
#include <img_pipe/filter_table.h>

namespace img_pipe {

void* open_library(const std::string& path);     // null when it cannot be loaded
filter_export find_filter_export(void* library); // null when it has none
void close_library(void* library);

} // namespace img_pipe
