// One process-wide pool of threads, and the split of an image over them.
#pragma once
#include <img_pipe/format.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <span>
#include <type_traits>
#include <utility>

namespace img_pipe {

struct line_split {
    std::int32_t pieces = 1;
    std::int32_t piece_lines = 0; // the last piece takes the rest
};
// Pieces have at least 64 lines and begin on multiples of 4.
line_split split_lines(std::int32_t height, std::int32_t threads);

// A run of lines of a view, with plane pointers of its own and the bytes that are left from there on. `first` must be a
// multiple of the vertical subsampling.
img_descriptor lines_of(const img_descriptor& view, std::int32_t first, std::int32_t count);

namespace parallel_pixkit {

// One piece of parallel work.
class func_caller {
public:
    virtual void operator()() = 0;
    virtual ~func_caller() = default;
    std::atomic<std::int32_t>* not_done = nullptr;
};

class worker_thread_pool {
public:
    virtual ~worker_thread_pool() = default;
    virtual void add_reference() = 0;
    virtual void release() = 0;
    // Hands items to the workers, who take the oldest first; false when the pool is stopping, and then no item was
    // taken.
    virtual bool queue_items(std::span<func_caller* const> items) = 0;
    // Gives an item with this counter back that no worker has begun; null when there is none.
    virtual func_caller* take_back(const std::atomic<std::int32_t>& not_done) = 0;
};

// The pool "pixkit", created on first use and ended with its last reference. Its threads are named pixkit0, pixkit1,
// ...
class pixkit_work_pool : public worker_thread_pool {
public:
    static constexpr unsigned default_thread_limit = 16;
    // How many threads those take that ask for all; 1 at least. Thread-safe. For the whole process; images begun later
    // obey it.
    static void set_thread_limit(unsigned limit);
    static unsigned thread_limit();
    // `max_concurrency` as it stands; 0: the lesser of the processor's threads and the limit.
    static unsigned thread_count(unsigned max_concurrency);
    // The pool with at least `threads` workers; the caller holds a reference.
    static pixkit_work_pool* acquire(unsigned threads);
};

template <class F>
class func_instance final : public func_caller {
public:
    func_instance(const F* function_, img_descriptor destination, img_descriptor source, std::int32_t first_,
                  std::int32_t piece_)
        : function(function_), dst(destination), src(source), first(first_), piece(piece_) {}
    void operator()() override {
        if constexpr (std::is_invocable_v<const F&, const img_descriptor&, const img_descriptor&, std::int32_t,
                                          std::int32_t>)
            (*function)(dst, src, first, piece);
        else
            (*function)(dst, src);
    }

private:
    const F* function;
    img_descriptor dst, src;
    std::int32_t first, piece;
};

constexpr std::int32_t max_pieces = 64;
// Runs the items on the pool and the calling thread, and waits for all; false when the pool takes none. What workers
// that are busy with other calls have not begun runs here, so a call waits only for pieces of its own.
bool run_and_wait(worker_thread_pool& pool, std::span<func_caller* const> items);

} // namespace parallel_pixkit

// A pipe's share of the pool. Used by one thread at a time.
class concurrency {
public:
    concurrency() = default;
    ~concurrency();
    concurrency(const concurrency&) = delete;
    concurrency& operator=(const concurrency&) = delete;
    // 0: all, 1: none. Takes the pool when more than one thread is wanted. More than max_pieces count as that many.
    void set_concurrency(unsigned max_concurrency);
    // What a call to run_parallel uses at most, the caller's included.
    std::int32_t threads() const { return count; }
    parallel_pixkit::worker_thread_pool* pool() const { return held; }

private:
    std::int32_t count = 1;
    parallel_pixkit::pixkit_work_pool* held = nullptr;
};

// Calls function(destination strip, source strip[, first line, piece number]) over the image, in pieces on the pool
// where that pays, and returns when all are done. The caller runs one piece at least itself. Views of one image in
// place are both the same.
template <class F>
void run_parallel(const concurrency& on, const F& function, const img_descriptor& destination,
                  const img_descriptor& source) {
    using namespace parallel_pixkit;
    const line_split split = on.pool() == nullptr ? line_split{} : split_lines(source.height, on.threads());
    if (split.pieces < 2 || split.pieces > max_pieces) {
        func_instance<F>(&function, destination, source, 0, 0)();
        return;
    }
    using instance = func_instance<F>;
    alignas(instance) std::byte memory[max_pieces * sizeof(instance)];
    func_caller* items[max_pieces];
    for (std::int32_t i = 0; i < split.pieces; ++i) {
        const std::int32_t first = i * split.piece_lines;
        const std::int32_t lines = i + 1 == split.pieces ? source.height - first : split.piece_lines;
        items[i] = new (memory + static_cast<std::size_t>(i) * sizeof(instance))
            instance(&function, lines_of(destination, first, lines), lines_of(source, first, lines), first, i);
    }
    const std::span<func_caller* const> all(items, static_cast<std::size_t>(split.pieces));
    if (!run_and_wait(*on.pool(), all))
        for (func_caller* item : all) (*item)();
}

} // namespace img_pipe
