// Which file a piece of this process was loaded from: where the parts that belong to it lie.
#pragma once
#include <string>

namespace loaded_file {

// Absolute path of the program or library that lies at `address`, links followed. It depends neither on the name by
// which that was started or opened nor on the current directory. Empty when the system does not tell. Thread-safe.
[[nodiscard]] std::string path_of(const void* address);

} // namespace loaded_file
