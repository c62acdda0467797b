#include "platform.h"
#include "posix/file_descriptor.h"

#include <fcntl.h>
#include <semaphore.h>
#include <sys/stat.h>

namespace ipc_rpc::platform {

named_semaphore named_semaphore::create(const std::string& name, const object_access& access) {
    sem_t* semaphore = sem_open(name.c_str(), O_CREAT | O_EXCL, S_IRUSR | S_IWUSR, 0);
    if (semaphore == SEM_FAILED) throw std::system_error(last_error(), "Failed to create semaphore");
    named_semaphore created{semaphore, name};
    if (access.group) {
        // A semaphore gives no descriptor; the C library keeps it in this file.
        const std::string file = "/dev/shm/sem." + name.substr(1);
        if (::chown(file.c_str(), static_cast<uid_t>(-1), *access.group) != 0 ||
            ::chmod(file.c_str(), S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP) != 0) {
            throw std::system_error(last_error(), "Failed to create world-access DACL");
        }
    }
    return created;
}

named_semaphore named_semaphore::open(const std::string& name) {
    sem_t* semaphore = sem_open(name.c_str(), 0);
    if (semaphore == SEM_FAILED) throw std::system_error(last_error(), "Failed to open semaphore");
    return {semaphore, {}};
}

named_semaphore::~named_semaphore() {
    if (handle != nullptr) sem_close(static_cast<sem_t*>(handle));
    release_name();
}

void named_semaphore::wait() {
    if (retry_interrupted([&] { return sem_wait(static_cast<sem_t*>(handle)); }) != 0) {
        throw std::system_error(last_error(), "Failed to lock semaphore");
    }
}

bool named_semaphore::try_wait() noexcept {
    return retry_interrupted([&] { return sem_trywait(static_cast<sem_t*>(handle)); }) == 0;
}

void named_semaphore::post(unsigned count) noexcept {
    for (; count != 0; --count) sem_post(static_cast<sem_t*>(handle));
}

void named_semaphore::release_name() noexcept {
    if (owned_name.empty()) return;
    sem_unlink(owned_name.c_str());
    owned_name.clear();
}

} // namespace ipc_rpc::platform
