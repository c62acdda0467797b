#include "accounts.h"

#include <grp.h>

namespace service {

std::optional<uint32_t> group_named(const std::string& name) {
    const group* found = getgrnam(name.c_str()); // NOLINT(concurrency-mt-unsafe): asked before there are threads
    if (found == nullptr) return std::nullopt;
    return found->gr_gid;
}

} // namespace service
