#include "accounts.h"

#include <grp.h>

namespace service {

std::optional<uint32_t> group_named(const std::string& name) {
    const group* found = getgrnam(name.c_str());
    if (found == nullptr) return std::nullopt;
    return found->gr_gid;
}

} // namespace service
