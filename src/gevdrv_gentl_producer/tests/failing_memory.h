// The allocator of a test program, in which one allocation of those made while a frame is worked on can be made to
// fail. The device's profiler must be on.
#pragma once

namespace failing_memory {

// The allocation after `successes` more fails, and no other.
void fail(int successes);
// None fails from here on; how many have.
int stop();

} // namespace failing_memory
