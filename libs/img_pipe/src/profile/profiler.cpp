#include <img_pipe/profiler.h>

#include <algorithm>
#include <cstdio>

namespace img_pipe {

namespace {
thread_local profiler* of_this_thread = nullptr;
constexpr int number_column = 54;
} // namespace

profiler* profiler::current() { return of_this_thread; }

profiler* profiler::set_current(profiler* next) {
    profiler* before = of_this_thread;
    of_this_thread = next;
    return before;
}

profiler::entry* profiler::find(std::string_view name, int at_depth) {
    for (std::size_t i = 0; i < used; ++i)
        if (entries[i].depth == at_depth && entries[i].name == name) return &entries[i];
    if (used == places) return nullptr;
    entries[used] = {name, at_depth, 0, {}};
    return &entries[used++];
}

void profiler::add(std::string_view name, int at_depth, clock::duration time) {
    entry* e = find(name, at_depth);
    if (e == nullptr) return;
    ++e->count;
    e->total += time;
}

void profiler::reset() {
    for (entry& e : entries) {
        e.count = 0;
        e.total = {};
    }
}

std::vector<std::string> profiler::lines() const {
    using us = std::chrono::microseconds;
    clock::duration whole{};
    for (const entry& e : entries)
        if (e.depth == 0) whole += e.total;
    std::vector<std::string> all;
    for (const entry& e : entries) {
        if (e.count == 0) continue; // not yet, or still open
        std::string line = std::string(static_cast<std::size_t>(e.depth) * 2, ' ') + '{' + std::string(e.name) + '}';
        const int pad = std::max(1, number_column - static_cast<int>(line.size()));
        const auto wall = static_cast<long long>(std::chrono::duration_cast<us>(e.total).count());
        const long long average = wall / e.count;
        const double share = whole.count() == 0
                                 ? 0.0
                                 : 100.0 * static_cast<double>(e.total.count()) / static_cast<double>(whole.count());
        char numbers[160];
        if (average == wall)
            (void)std::snprintf(numbers, sizeof numbers, "%*c #%4d time=           %7lldus, %6.2f%%", pad, ' ',
                                static_cast<int>(e.count), wall, share);
        else
            (void)std::snprintf(numbers, sizeof numbers, "%*c #%4d time=%7lldus /%7lldus, %6.2f%%", pad, ' ',
                                static_cast<int>(e.count), average, wall, share);
        all.push_back(line + numbers);
    }
    return all;
}

// The place is taken at the beginning, so that an outer step's line comes first.
profile_scope::profile_scope(std::string_view name_) : owner(profiler::current()), name(name_) {
    if (owner == nullptr) return;
    (void)owner->find(name, owner->depth++);
    begin = profiler::clock::now();
}

profile_scope::~profile_scope() {
    if (owner == nullptr) return;
    owner->add(name, --owner->depth, profiler::clock::now() - begin);
}

} // namespace img_pipe
