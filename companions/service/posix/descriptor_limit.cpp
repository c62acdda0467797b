#include "descriptor_limit.h"

#include <sys/resource.h>

#include <algorithm>

namespace service {

std::size_t raise_descriptor_limit(std::size_t wanted) {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
    // A service manager's filter may end a process that asks for what it has already.
    if (limit.rlim_cur >= wanted) return limit.rlim_cur;
    const rlimit raised{std::min<rlim_t>(wanted, limit.rlim_max), limit.rlim_max};
    return setrlimit(RLIMIT_NOFILE, &raised) == 0 ? raised.rlim_cur : limit.rlim_cur;
}

} // namespace service
