// Times of named, nested steps on one thread. Nothing is measured, and next to nothing spent, while the thread has no
// profiler.
#pragma once
#include <array>
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace img_pipe {

// Thread-bound. Names must outlive the profiler: string literals.
class profiler {
public:
    // One line per name and depth, in the order of first use:
    // "  {name}      #count time=average us / total us, share%".
    std::vector<std::string> lines() const;
    void reset(); // starts counting anew; scopes may be open

    static profiler* current();
    // Makes `next` the thread's profiler, null for none; gives the one before.
    static profiler* set_current(profiler* next);

    using clock = std::chrono::steady_clock;
    void add(std::string_view name, int depth, clock::duration time); // one call

private:
    friend class profile_scope;
    struct entry {
        std::string_view name;
        int depth;
        std::int64_t count;
        clock::duration total;
    };
    // Steps past the last place are not measured: nothing is allocated while images are worked on.
    static constexpr std::size_t places = 64;
    entry* find(std::string_view name, int at_depth);
    std::array<entry, places> entries{};
    std::size_t used = 0;
    int depth = 0;
};

class profile_scope {
public:
    explicit profile_scope(std::string_view name);
    ~profile_scope();
    profile_scope(const profile_scope&) = delete;
    profile_scope& operator=(const profile_scope&) = delete;

private:
    profiler* owner;
    std::string_view name;
    profiler::clock::time_point begin;
};

} // namespace img_pipe
