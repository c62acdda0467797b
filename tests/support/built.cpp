// The only source with paths of the build in it: all other objects are alike in every checkout, which a compiler cache
// honours.
#include "built.h"

namespace test_support::built {

const char* const cti = ORV_CTI;
const char* const multipart_cti = ORV_MULTIPART_CTI;
const bool sanitized = sizeof ORV_SANITIZED > 1;

std::string bin_dir() { return ORV_BIN_DIR; }
std::string program(const std::string& name) { return ORV_BIN_DIR "/" + name; }
std::string source(const std::string& name) { return ORV_SOURCE_DIR "/" + name; }
std::string test_tool(const std::string& name) { return ORV_TOOL_DIR "/" + name; }

} // namespace test_support::built
