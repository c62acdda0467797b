// The allocator of a test program, in which one allocation can be made to fail. Its source belongs to the program's.
#pragma once

namespace failing_memory {

// Whose allocations count; asked in each, so it takes no memory.
using whose = bool (*)();
bool this_thread(); // the last one that called fail()
bool other_threads();

// Of the allocations that count the one after `successes` more fails, and no other.
void fail(int successes, whose counts = this_thread);
// How many have since fail(): none or one.
int failures();
// None fails from here on; how many have.
int stop();

} // namespace failing_memory
