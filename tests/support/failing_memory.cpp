#include "failing_memory.h"

#include <atomic>
#include <cstdlib>
#include <new>
#include <utility>

namespace {

std::atomic<int> until_failure{-1}; // allocations that count and still succeed; none fails below zero
std::atomic<int> failed{0};
std::atomic<failing_memory::whose> counts{failing_memory::this_thread};
std::atomic<int> turn{0};
thread_local int own_turn = -1;

void* allocate(std::size_t size) {
    if (until_failure.load(std::memory_order_relaxed) >= 0 && counts.load()() && until_failure.fetch_sub(1) == 0) {
        ++failed;
        return nullptr;
    }
    return std::malloc(size == 0 ? 1 : size);
}

} // namespace

// Not inlined, or the compiler takes them for no pairs.
[[gnu::noinline]] void* operator new(std::size_t size) {
    if (void* const memory = allocate(size)) return memory;
    throw std::bad_alloc{};
}
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace failing_memory {

bool this_thread() { return own_turn == turn; }
bool other_threads() { return own_turn != turn; }

void fail(int successes, whose counting) {
    until_failure = -1;
    own_turn = ++turn;
    failed = 0;
    counts = counting;
    until_failure = successes;
}

int failures() { return failed; }

int stop() {
    until_failure = -1;
    return failed;
}

} // namespace failing_memory
