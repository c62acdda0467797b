#include "platform.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace gds_helper::platform {

bool is_pipe_without_reader(const std::filesystem::path& file) noexcept {
    std::error_code ignored;
    if (!std::filesystem::is_fifo(file, ignored)) return false;
    const int end = open(file.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (end < 0) return errno == ENXIO;
    close(end);
    return false;
}

} // namespace gds_helper::platform
