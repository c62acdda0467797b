#include "failing_memory.h"

#include <cstdlib>
#include <new>

namespace {

thread_local int until_failure = -1;

} // namespace

void* operator new(std::size_t size) {
    if (until_failure >= 0 && until_failure-- == 0) throw std::bad_alloc{};
    if (void* const memory = std::malloc(size == 0 ? 1 : size)) return memory;
    throw std::bad_alloc{};
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace failing_memory {

void fail(int successes) { until_failure = successes; }

} // namespace failing_memory
