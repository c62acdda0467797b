// For a processor that no vector kernels are written for.
#include "module.h"

namespace img_pipe {

const filter_module* vector_module() { return nullptr; }

} // namespace img_pipe
