#include "platform/shared_mapping.h"
#include "posix/file_descriptor.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace ipc_rpc::platform {

namespace {

std::atomic<mapping_guard*> installed_guard{nullptr};

// Giving a file away takes one capability, removing its name afterwards from a sticky folder another. Asked of the
// kernel without a file, so that a lack of descriptors cannot answer it.
bool may_give_away() {
    __user_cap_header_struct asked{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct have[_LINUX_CAPABILITY_U32S_3]{};
    if (syscall(SYS_capget, &asked, have) != 0) throw std::system_error(last_error(), "Failed to ask for capabilities");
    static_assert(CAP_CHOWN < 32 && CAP_FOWNER < 32);
    return (have[0].effective >> CAP_CHOWN & 1) != 0 && (have[0].effective >> CAP_FOWNER & 1) != 0;
}

void admit(int fd, const object_access& access) {
    const auto fail = [] { throw std::system_error(last_error(), "Failed to create world-access DACL"); };
    if (access.owner) {
        if (*access.owner == geteuid() || *access.owner == 0) return; // the mode it has is enough
        if (may_give_away()) {
            if (fchown(fd, *access.owner, static_cast<gid_t>(-1)) != 0) fail();
            return;
        }
    }
    // The group first: the mode must never admit a group that it is not meant for.
    if (access.group && (fchown(fd, static_cast<uid_t>(-1), *access.group) != 0 ||
                         fchmod(fd, S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP) != 0)) {
        fail();
    }
}

} // namespace

void install_mapping_guard(mapping_guard& guard) noexcept { installed_guard = &guard; }

void shared_mapping::map(int descriptor, std::size_t size) {
    const auto no_memory = [] {
        throw std::system_error(std::make_error_code(std::errc::not_enough_memory),
                                "failed to map view of file mapping");
    };
    void* address = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (address == MAP_FAILED) no_memory();
    const std::span region{static_cast<std::byte*>(address), size};
    if (mapping_guard* guard = installed_guard) {
        broken = guard->add(region);
        if (broken == nullptr) {
            munmap(address, size);
            no_memory();
        }
    }
    mapped = region;
}

shared_mapping shared_mapping::create(const std::string& name, std::size_t size, const object_access& access) {
    const file_descriptor fd{shm_open(name.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR)};
    if (!fd) throw std::system_error(last_error(), "failed to create file mapping");
    shared_mapping mapping{name}; // from here on the name goes with it
    // With its memory: a full file system is an error here instead of a signal at the first access.
    const int lacking = posix_fallocate(fd.get(), 0, static_cast<off_t>(size));
    if (lacking != 0) throw std::system_error(lacking, std::generic_category(), "failed to create file mapping");
    admit(fd.get(), access);
    mapping.map(fd.get(), size);
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
    shared_mapping mapping{std::string{}};
    mapping.map(fd.get(), size);
    return mapping;
}

shared_mapping::~shared_mapping() {
    if (!mapped.empty()) {
        // The guard first: the addresses may be another mapping's the moment they are free.
        if (mapping_guard* guard = broken != nullptr ? installed_guard.load() : nullptr) guard->remove(mapped);
        munmap(mapped.data(), mapped.size());
    }
    release_name();
}

void shared_mapping::release_name() noexcept {
    if (owned_name.empty()) return;
    shm_unlink(owned_name.c_str());
    owned_name.clear();
}

std::string object_name(const std::string& base) { return "/" + base; }

} // namespace ipc_rpc::platform
