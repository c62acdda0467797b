// Names of threads, for debuggers and lists of processes.
#pragma once

namespace img_pipe {

void name_this_thread(const char* name); // at most 15 characters

} // namespace img_pipe
