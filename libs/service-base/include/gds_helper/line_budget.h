// A bound on the log lines that somebody outside this process can cause.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace gds_helper::log {

// So many lines, at level "info" and above, in each window of time; beyond it one line says that others are left out,
// and with the next one that passes comes how many they were. The outputs ask it under their lock.
class line_budget final {
public:
    static constexpr std::chrono::seconds window{10};

    // `source` is for the log. What counts against this one counts against the one it is a part of, too.
    line_budget(std::string source_name, unsigned lines, std::shared_ptr<line_budget> part_of = nullptr)
        : source(std::move(source_name)), most(lines), whole(std::move(part_of)) {}

    // Null when the line passes, else the budget that is used up.
    [[nodiscard]] line_budget* take(std::chrono::steady_clock::time_point now) {
        if (now - began >= window) {
            began = now;
            used = 0;
        }
        if (used >= most) return this;
        if (line_budget* const refused = whole ? whole->take(now) : nullptr) return refused;
        ++used;
        return nullptr;
    }

    const std::string source;
    const unsigned most;
    const std::shared_ptr<line_budget> whole;
    std::atomic<std::uint64_t> left_out{0}; // and not said yet

private:
    std::chrono::steady_clock::time_point began{};
    unsigned used = 0;
};

// While it lives, the lines of this thread count against the budget. Threads of a pool and of a connection take over
// what counts for the thread that starts them.
class counted_lines final {
public:
    explicit counted_lines(std::shared_ptr<line_budget> against) noexcept; // null: against none
    ~counted_lines();
    counted_lines(const counted_lines&) = delete;
    counted_lines& operator=(const counted_lines&) = delete;
    // What counts for this thread now.
    [[nodiscard]] static std::shared_ptr<line_budget> current() noexcept;

private:
    friend class limited_outputs;
    const std::shared_ptr<line_budget> budget;
    counted_lines* const outer;
};

} // namespace gds_helper::log
