#include "platform/stop_event.h"
#include "posix/file_descriptor.h"

#include <poll.h>
#include <sys/eventfd.h>

namespace ipc_rpc::platform {

stop_event::stop_event() : handle(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (handle < 0) throw std::system_error(last_error(), "Failed to create semaphore");
}

stop_event::~stop_event() { ::close(static_cast<int>(handle)); }

void stop_event::set() noexcept { static_cast<void>(eventfd_write(static_cast<int>(handle), 1)); }

void stop_event::reset() noexcept {
    eventfd_t ignored = 0;
    static_cast<void>(eventfd_read(static_cast<int>(handle), &ignored));
}

bool stop_event::is_set() const noexcept {
    pollfd entry{static_cast<int>(handle), POLLIN, 0};
    return poll(&entry, 1, 0) > 0;
}

} // namespace ipc_rpc::platform
