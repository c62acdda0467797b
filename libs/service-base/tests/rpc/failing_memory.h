// The allocator of the test program, in which an allocation of the calling thread can be made to fail.
#pragma once

namespace failing_memory {

// The allocation of this thread after `successes` more fails, and no other; none does below zero.
void fail(int successes);

} // namespace failing_memory
