// The writing end of a FIFO that somebody reads, opened without waiting for him.
#include "platform.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace gds_helper::platform {

pipe_end::pipe_end(const std::filesystem::path& file) noexcept {
    std::error_code ignored;
    if (!std::filesystem::is_fifo(file, ignored)) return;
    descriptor = open(file.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    nobody_reads = descriptor < 0 && errno == ENXIO;
}

pipe_end::~pipe_end() {
    if (descriptor >= 0) close(descriptor);
}

} // namespace gds_helper::platform
