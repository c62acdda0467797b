#include "this_process.h"

#include <pwd.h>
#include <sys/resource.h>
#include <unistd.h>

namespace cli {

double cpu_seconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto of = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return of(usage.ru_utime) + of(usage.ru_stime);
}

int process_id() noexcept { return getpid(); }
bool is_root() noexcept { return geteuid() == 0; }

std::string user_name() {
    const passwd* user = getpwuid(geteuid()); // NOLINT(concurrency-mt-unsafe): asked by the main thread alone
    return user == nullptr ? "" : user->pw_name;
}

std::string user_home() {
    const passwd* user = getpwuid(geteuid()); // NOLINT(concurrency-mt-unsafe): asked by the main thread alone
    return user == nullptr ? "" : user->pw_dir;
}

std::string host_name() {
    char name[256] = {};
    return gethostname(name, sizeof name - 1) == 0 ? name : "";
}

} // namespace cli
