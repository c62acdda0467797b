// What the build has made, and where.
#pragma once

#include <string>

namespace test_support::built {

extern const char* const cti;
extern const char* const multipart_cti;
extern const bool sanitized;

[[nodiscard]] std::string bin_dir();
[[nodiscard]] std::string program(const std::string& name);
[[nodiscard]] std::string source(const std::string& name);
// A program or library that is there for tests only.
[[nodiscard]] std::string test_tool(const std::string& name);

} // namespace test_support::built
