#include "failing_memory.h"

#include <img_pipe/profiler.h>

#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string_view>

namespace {

std::atomic<int> until_failure{-1}; // allocations for a frame until one fails; none below zero
std::atomic<int> failures{0};

// On the thread of its own a frame is all there is; the receive thread takes memory for other things, too, but has a
// profiler only while it works on a frame.
bool works_on_a_frame() {
    if (img_pipe::profiler::current() != nullptr) return true;
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof name);
    return std::string_view{name} == "gds-buf-deliver";
}

void* allocate(std::size_t size) {
    if (until_failure.load(std::memory_order_relaxed) >= 0 && works_on_a_frame() && until_failure.fetch_sub(1) == 0) {
        ++failures;
        return nullptr;
    }
    return std::malloc(size == 0 ? 1 : size);
}

} // namespace

void* operator new(std::size_t size) {
    if (void* const memory = allocate(size)) return memory;
    throw std::bad_alloc{};
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace failing_memory {

void fail(int successes) {
    failures = 0;
    until_failure = successes;
}

int stop() {
    until_failure = -1;
    return failures;
}

} // namespace failing_memory
