#include <gentl_producer/Library.h>

#include <unistd.h>

namespace GenTL::Producer {

int64_t this_process() noexcept { return getpid(); }

} // namespace GenTL::Producer
