#include "../process.h"

#include <pthread.h>
#include <unistd.h>

namespace img_pipe {

std::int64_t process_id() noexcept { return getpid(); }

bool around_fork(void (*before)(), void (*after)()) noexcept { return pthread_atfork(before, after, after) == 0; }

} // namespace img_pipe
