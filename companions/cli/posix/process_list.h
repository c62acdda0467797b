// Other processes of this host, as far as they can be seen.
#pragma once

#include <string>
#include <vector>

namespace cli {

// A file that the kernel writes as it is read: of a process that ends meanwhile, what came before; empty when there is
// none or it may not be read.
[[nodiscard]] std::string kernel_text(const std::string& path);

// "2026-01-31 14:02:11"; empty when unknown.
[[nodiscard]] std::string start_time_of(int pid);

// Processes, this one not among them, that have a file of this name loaded and may be looked into: a text each, with
// name, number and start.
[[nodiscard]] std::vector<std::string> others_with_file(const std::string& name);

} // namespace cli
