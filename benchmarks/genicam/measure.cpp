// The clock, and a count of what the heap is asked for.
#include "bench.h"

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::uint64_t> allocations{0};
std::atomic<std::int64_t> bytes{0};

void* counted(std::size_t size) {
    void* memory = std::malloc(size);
    if (memory == nullptr) throw std::bad_alloc{};
    allocations.fetch_add(1, std::memory_order_relaxed);
    bytes.fetch_add(static_cast<std::int64_t>(malloc_usable_size(memory)), std::memory_order_relaxed);
    return memory;
}

void release(void* memory) noexcept {
    if (memory == nullptr) return;
    bytes.fetch_sub(static_cast<std::int64_t>(malloc_usable_size(memory)), std::memory_order_relaxed);
    std::free(memory);
}

} // namespace

void* operator new(std::size_t size) { return counted(size); }
void* operator new[](std::size_t size) { return counted(size); }
// The arena of a document asks with an alignment; malloc's own is enough for it.
void* operator new(std::size_t size, std::align_val_t) { return counted(size); }
void operator delete(void* memory, std::align_val_t) noexcept { release(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { release(memory); }
void operator delete(void* memory) noexcept { release(memory); }
void operator delete[](void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t) noexcept { release(memory); }
void operator delete[](void* memory, std::size_t) noexcept { release(memory); }

namespace bench {

namespace {

using work = std::function<void(std::uint64_t)>;

constexpr int rounds = 41;

double seconds_of(const work& operation, std::uint64_t n) {
    const auto start = std::chrono::steady_clock::now();
    operation(n);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// How many operations make a round: some milliseconds, less than a scheduler's slice on a busy machine.
std::uint64_t operations_per_round(const work& operation) {
    constexpr double round = 0.002;
    for (std::uint64_t n = 1;; n *= 4) {
        const double taken = seconds_of(operation, n);
        if (taken > round / 4)
            return std::max<std::uint64_t>(1, static_cast<std::uint64_t>(round / taken * static_cast<double>(n)));
    }
}

} // namespace

heap_use heap() noexcept { return {allocations.load(), bytes.load()}; }

double measure(const work& operation) {
    const std::uint64_t n = operations_per_round(operation);
    double best = HUGE_VAL;
    for (int i = 0; i < rounds; ++i) best = std::min(best, seconds_of(operation, n));
    return best / static_cast<double>(n) * 1e9;
}

pair_of_times measure_both(const work& ours, const work& theirs) {
    const std::uint64_t our_n = operations_per_round(ours);
    const std::uint64_t their_n = operations_per_round(theirs);
    pair_of_times best{HUGE_VAL, HUGE_VAL};
    for (int i = 0; i < rounds; ++i) {
        best.ours = std::min(best.ours, seconds_of(ours, our_n));
        best.theirs = std::min(best.theirs, seconds_of(theirs, their_n));
    }
    return {best.ours / static_cast<double>(our_n) * 1e9, best.theirs / static_cast<double>(their_n) * 1e9};
}

} // namespace bench
