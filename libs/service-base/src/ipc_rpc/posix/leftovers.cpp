// A name says which process made it: its number, the time it started (numbers come again) and the namespace in which
// the number counts.
#include <ipc_rpc/leftovers.h>

#include "platform.h"
#include "posix/file_descriptor.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <iterator>

namespace ipc_rpc {

namespace {

// In clock ticks since the machine started; empty when it can't be read.
std::string start_time_of(const std::string& process) {
    const platform::file_descriptor file{::open(("/proc/" + process + "/stat").c_str(), O_RDONLY | O_CLOEXEC)};
    std::string text(1024, '\0'); // its first 22 fields are shorter
    const auto size = platform::retry_interrupted([&] { return ::read(file.get(), text.data(), text.size()); });
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    // The 22nd field; the second is the program's name in brackets, which may hold anything.
    std::size_t at = text.rfind(')');
    if (at == std::string::npos) return {};
    for (int field = 2; field < 22 && at != std::string::npos; ++field) at = text.find(' ', at + 1);
    if (at == std::string::npos) return {};
    return text.substr(at + 1, text.find(' ', at + 1) - at - 1);
}

// Only what is known for sure counts: /proc may hide other users' processes, and descriptors may be used up.
bool has_ended(const std::string& process, const std::string& start_time) {
    pid_t number = 0;
    const char* end = process.data() + process.size();
    const auto [at, error] = std::from_chars(process.data(), end, number);
    if (error != std::errc{} || at != end || number <= 0) return false;
    if (kill(number, 0) != 0 && errno == ESRCH) return true;
    const std::string now = start_time_of(process);
    return !now.empty() && now != start_time;
}

std::string process_namespace() {
    struct stat info {};
    return stat("/proc/self/ns/pid", &info) == 0 ? std::to_string(info.st_ino) : "0";
}

bool is_left_over(std::string_view name, const std::string& own_namespace) {
    if (name.starts_with("sem.")) name.remove_prefix(4);
    if (name.starts_with("ipc_")) {
        name.remove_prefix(4);
    } else if (name.starts_with("settings-")) {
        name.remove_prefix(9);
    } else {
        return false;
    }
    // process_start_namespace_random, then what the object is
    std::string fields[3];
    for (std::string& field : fields) {
        const std::size_t end = name.find('_');
        if (end == 0 || end == std::string_view::npos) return false;
        field = name.substr(0, end);
        if (!std::ranges::all_of(field, [](char c) { return c >= '0' && c <= '9'; })) return false;
        name.remove_prefix(end + 1);
    }
    return fields[2] == own_namespace && has_ended(fields[0], fields[1]);
}

} // namespace

std::vector<std::string> find_leftovers() {
    std::vector<std::string> names;
    const std::string own_namespace = process_namespace();
    std::error_code ignored;
    for (std::filesystem::directory_iterator entry{"/dev/shm", ignored}, end; entry != end; entry.increment(ignored)) {
        std::string name = entry->path().filename();
        if (is_left_over(name, own_namespace)) names.push_back(std::move(name));
    }
    return names;
}

std::size_t remove_leftovers() {
    std::size_t removed = 0;
    for (const std::string& name : find_leftovers()) removed += shm_unlink(("/" + name).c_str()) == 0 ? 1 : 0;
    return removed;
}

namespace platform {

std::string unique_text() {
    std::uint64_t random = 0;
    if (getrandom(&random, sizeof random, 0) != sizeof random) throw std::system_error(last_error(), "getrandom");
    char digits[16];
    const auto end = std::to_chars(std::begin(digits), std::end(digits), random, 16).ptr;
    return std::to_string(getpid()) + "_" + start_time_of("self") + "_" + process_namespace() + "_" +
           std::string{digits, end};
}

} // namespace platform

} // namespace ipc_rpc
