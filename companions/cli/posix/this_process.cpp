#include "this_process.h"

#include "../failure/failure.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

#include <pwd.h>
#include <sys/resource.h>
#include <unistd.h>

extern "C" char** environ;

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

std::filesystem::path program_file() {
    std::error_code ignored;
    return std::filesystem::read_symlink("/proc/self/exe", ignored);
}

std::vector<std::string> environment() {
    std::vector<std::string> lines;
    for (char** each = environ; *each != nullptr; ++each) lines.emplace_back(*each);
    return lines;
}

void set_variable(const char* name, const std::string& value) {
    setenv(name, value.c_str(), 1); // NOLINT(concurrency-mt-unsafe): no other thread yet
}

std::filesystem::path make_folder(const std::filesystem::path& within, const std::string& stem) {
    std::string name = (within / (stem + "XXXXXX")).string();
    if (mkdtemp(name.data()) == nullptr)
        throw failure(cause::output, fmt::format("Cannot make a folder in '{}': {}.", within.string(),
                                                 std::system_category().message(errno)));
    return name;
}

bool may_write(const std::filesystem::path& path) { return access(path.c_str(), W_OK) == 0; }

std::string local_time(std::time_t time) {
    std::tm local{};
    char text[32] = {};
    localtime_r(&time, &local);
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

} // namespace cli
