#include "../thread_name.h"

#include <pthread.h>

namespace img_pipe {

void name_this_thread(const char* name) { pthread_setname_np(pthread_self(), name); }

} // namespace img_pipe
