// The allocator of a test program, in which one allocation of the threads that deliver frames can be made to fail.
#pragma once

namespace failing_memory {

// The allocation after `successes` more fails, and no other.
void fail(int successes);
// None fails from here on; how many have.
int stop();

} // namespace failing_memory
