// Time and heap of this process. The allocation functions are the program's own, so that those of every library count.
#include "bench_stream.h"

#include <sys/resource.h>

#include <atomic>
#include <cerrno>
#include <chrono>

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
}

namespace {

std::atomic<uint64_t> allocations{0};

void count() noexcept { allocations.fetch_add(1, std::memory_order_relaxed); }

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

} // namespace

extern "C" {
void* malloc(size_t size) {
    count();
    return __libc_malloc(size);
}
void* calloc(size_t items, size_t size) {
    count();
    return __libc_calloc(items, size);
}
void* realloc(void* old, size_t size) {
    count();
    return __libc_realloc(old, size);
}
void* aligned_alloc(size_t alignment, size_t size) {
    count();
    return __libc_memalign(alignment, size);
}
int posix_memalign(void** result, size_t alignment, size_t size) {
    count();
    *result = __libc_memalign(alignment, size);
    return *result == nullptr ? ENOMEM : 0;
}
}

namespace bench {

void fail(const std::string& what) {
    std::fprintf(stderr, "bench_stream: %s\n", what.c_str());
    std::exit(1);
}

double cpu_seconds() {
    rusage used{};
    ::getrusage(RUSAGE_SELF, &used);
    return seconds(used.ru_utime) + seconds(used.ru_stime);
}

uint64_t wakes() {
    rusage used{};
    ::getrusage(RUSAGE_SELF, &used);
    return static_cast<uint64_t>(used.ru_nvcsw);
}

double wall_seconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

uint64_t allocation_count() noexcept { return allocations.load(std::memory_order_relaxed); }

} // namespace bench
