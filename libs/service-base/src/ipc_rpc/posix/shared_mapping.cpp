#include "platform.h"
#include "posix/file_descriptor.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <atomic>
#include <ctime>

namespace ipc_rpc::platform {

namespace {

std::span<std::byte> map(int fd, std::size_t size) {
    void* address = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (address == MAP_FAILED) {
        throw std::system_error(std::make_error_code(std::errc::not_enough_memory),
                                "failed to map view of file mapping");
    }
    return {static_cast<std::byte*>(address), size};
}

} // namespace

shared_mapping shared_mapping::create(const std::string& name, std::size_t size, const object_access& access) {
    const file_descriptor fd{shm_open(name.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR)};
    if (!fd) throw std::system_error(last_error(), "failed to create file mapping");
    shared_mapping mapping{{}, name};  // from here on the name goes with it
    // The group first: the mode must never admit a group that it is not meant for.
    if (access.group && (fchown(fd.get(), static_cast<uid_t>(-1), *access.group) != 0 ||
                         fchmod(fd.get(), S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP) != 0)) {
        throw std::system_error(last_error(), "Failed to create world-access DACL");
    }
    if (ftruncate(fd.get(), static_cast<off_t>(size)) != 0) {
        throw std::system_error(last_error(), "failed to create file mapping");
    }
    mapping.mapped = map(fd.get(), size);
    return mapping;
}

shared_mapping shared_mapping::open(const std::string& name, std::size_t min_size) {
    const file_descriptor fd{shm_open(name.c_str(), O_RDWR | O_CLOEXEC, 0)};
    struct stat info {};
    if (!fd || fstat(fd.get(), &info) != 0) throw std::system_error(last_error(), "failed to open file mapping");
    const auto size = static_cast<std::size_t>(info.st_size);
    if (size < min_size) {
        throw std::system_error(std::make_error_code(std::errc::invalid_argument), "failed to open file mapping");
    }
    return {map(fd.get(), size), {}};
}

shared_mapping::~shared_mapping() {
    if (!mapped.empty()) munmap(mapped.data(), mapped.size());
    release_name();
}

void shared_mapping::release_name() noexcept {
    if (owned_name.empty()) return;
    shm_unlink(owned_name.c_str());
    owned_name.clear();
}

std::string object_name(const std::string& base) { return "/" + base; }

std::string unique_text() {
    static std::atomic<std::uint64_t> counter{0};
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::to_string(getpid()) + "_" + std::to_string(now.tv_sec) + std::to_string(now.tv_nsec) + "_" +
           std::to_string(++counter);
}

} // namespace ipc_rpc::platform
