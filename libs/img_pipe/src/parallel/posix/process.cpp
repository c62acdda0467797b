#include "../process.h"

#include <unistd.h>

namespace img_pipe {

std::int64_t process_id() noexcept { return getpid(); }

} // namespace img_pipe
