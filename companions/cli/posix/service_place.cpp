#include "service_place.h"

#include "service_unit.h"

#include <posix/runtime_directory.h>

#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace cli {

namespace {

namespace fs = std::filesystem;

std::string user_text(uid_t user) {
    const passwd* known = getpwuid(user); // NOLINT(concurrency-mt-unsafe): asked by the main thread alone
    return known == nullptr ? fmt::format("user {}", user) : fmt::format("user '{}'", known->pw_name);
}

// For somebody whom the socket's mode keeps out.
std::string way_in(const struct stat& socket) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): asked by the main thread alone
    const group* const members = (socket.st_mode & S_IWGRP) != 0 ? getgrgid(socket.st_gid) : nullptr;
    if (members == nullptr) return "Run as that user, or start the service with --group and join that group.";
    if (membership_in(members->gr_name) == membership::with_next_login)
        return fmt::format("Its group is '{}': this user is a member, and this login is from before. Log in again.",
                           members->gr_name);
    return fmt::format("Its group is '{0}': sudo adduser USER {0}, and log in again.", members->gr_name);
}

std::string text_of(int error) { return std::system_category().message(error); }

// 0 when somebody listens who lets this user in, else errno.
int try_connect(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return ENAMETOOLONG;
    std::memcpy(address.sun_path, path.data(), path.size());
    const int descriptor = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (descriptor < 0) return errno;
    const int error = connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? 0 : errno;
    close(descriptor);
    return error;
}

// 0 when there is room for a connection's two queues and their packets, else errno.
int try_shared_memory() {
    const std::string name = fmt::format("/orv-gentl-room-{}", getpid());
    const int descriptor = shm_open(name.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (descriptor < 0) return errno;
    shm_unlink(name.c_str());
    const int error = posix_fallocate(descriptor, 0, 256 * 1024);
    close(descriptor);
    return error;
}

// The socket's name in the producer's text.
std::string socket_name(const std::string& reason) {
    constexpr std::string_view before = "service-pipe '";
    const size_t begin = reason.find(before);
    if (begin == reason.npos) return {};
    const size_t start = begin + before.size();
    return reason.substr(start, reason.find('\'', start) - start);
}

// Sockets of services of other versions, which this library does not speak to.
std::string other_services(const std::string& folder, const std::string& name) {
    const std::string stem = name.substr(0, name.find("_service_pipe"));
    std::string list;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator{folder, ignored}) {
        const std::string other = entry.path().filename();
        if (other != name && other.starts_with(stem) && entry.is_socket(ignored)) list += fmt::format(" {}", other);
    }
    return list;
}

} // namespace

std::string service_folder() { return ipc_rpc::platform::choose_runtime_directory().path; }

bool uses_service_unit() {
    const char* own = std::getenv("ORV_GENTL_RUNTIME_DIR");
    const bool elsewhere = own != nullptr && *own != '\0' && std::string_view{own} != "/run/orv-gentl-gev";
    return !elsewhere && has_service_unit();
}

explanation why_no_service(const std::string& reason) {
    const std::string name = socket_name(reason);
    if (name.empty())
        return {"The library cannot be opened.",
                "Its log tells more: ORV_GENTL_GEV_DEBUG=1 ORV_GENTL_GEV_DEBUG_FILE=library.log orv-gentl list"};
    const auto place = ipc_rpc::platform::choose_runtime_directory();
    const std::string socket = place.path + '/' + name;
    const std::string where = fmt::format("in '{}' ({})", place.path, place.because);
    const bool of_unit = uses_service_unit();
    const std::string start_command = of_unit ? start_of_unit("start") : "orv-gentl-gev-service";
    const std::string start = "Start it: " + start_command;
    struct stat found {};
    const int missing = lstat(socket.c_str(), &found) == 0 ? 0 : errno;
    if (missing == EACCES) {
        struct stat of_folder {};
        const bool known = stat(place.path.c_str(), &of_folder) == 0;
        return {fmt::format("No service can be asked: its folder {} is closed to {}: {}.{}", where,
                            user_text(geteuid()), text_of(missing),
                            known ? fmt::format(" It belongs to {}.", user_text(of_folder.st_uid)) : ""),
                "Run as that user, or join its group."};
    }
    struct stat folder {};
    if (missing != 0 && !of_unit && !place.is_last &&
        (stat(place.path.c_str(), &folder) != 0 || !S_ISDIR(folder.st_mode))) {
        // A service makes only the last by itself, and the unit its own.
        return {
            fmt::format("No service runs: there is no folder '{}' ({}).", place.path, place.because),
            fmt::format("mkdir -m 700 '{}', or set ORV_GENTL_RUNTIME_DIR to a folder that is there, for the service "
                        "and for applications alike. Then start it: {}",
                        place.path, start_command)};
    }
    if (missing != 0) {
        const std::string others = other_services(place.path, name);
        std::string text =
            fmt::format("No service runs: there is no socket '{}' {}: {}.", name, where, text_of(missing));
        if (others.empty()) return {text, start};
        return {fmt::format("{} There are services of other versions:{}. Library and service must be of one version.",
                            text, others),
                fmt::format("Restart applications after an upgrade. Otherwise end that service and start this "
                            "library's: {}",
                            start_command)};
    }
    const std::string owner = user_text(found.st_uid);
    const int refused = try_connect(socket);
    if (refused == ECONNREFUSED)
        return {fmt::format("No service runs: the socket {} belongs to {} and nobody listens at it: {}.", where, owner,
                            text_of(refused)),
                start};
    if (refused == EACCES || refused == EPERM)
        return {fmt::format("The service of {} does not let {} in: {}.", owner, user_text(geteuid()), text_of(refused)),
                way_in(found)};
    const std::string restart =
        of_unit ? fmt::format("sudo systemctl restart {} {}", socket_unit, service_unit) : "End it and start it again";
    if (refused != 0)
        return {fmt::format("The service's socket {} cannot be used: {}.", where, text_of(refused)), restart};
    if (const int lacking = try_shared_memory(); lacking != 0)
        return {fmt::format("Library and service talk through shared memory, and none is to be had in '/dev/shm': {}.",
                            text_of(lacking)),
                "Make room there: df /dev/shm; where it is no file system in memory: "
                "mount -t tmpfs -o mode=1777 tmpfs /dev/shm; in a container: --ipc host, or --shm-size 64m."};
    return {fmt::format("A service of {} listens {} and does not answer as it should: it may not let {} in, or have "
                        "too many clients.",
                        owner, where, user_text(geteuid())),
            of_unit ? fmt::format("Its log tells: journalctl -u {}; else {}", service_unit, restart)
                    : "Its log tells, when it is started with --log-level 2."};
}

} // namespace cli
