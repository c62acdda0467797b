// The parts of bench_genicam.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace bench {

// Nanoseconds per operation: the fastest of many rounds, which is the one that other programs disturbed least. A round
// is as many operations as fill some milliseconds; `operation` runs n of them.
[[nodiscard]] double measure(const std::function<void(std::uint64_t n)>& operation);

// Two operations in turn, round by round, so that a change of the clock rate meets both.
struct pair_of_times {
    double ours;
    double theirs;
};
[[nodiscard]] pair_of_times measure_both(const std::function<void(std::uint64_t n)>& ours,
                                         const std::function<void(std::uint64_t n)>& theirs);

// Heap traffic of the process.
struct heap_use {
    std::uint64_t allocations; // calls so far
    std::int64_t bytes;        // now
};
[[nodiscard]] heap_use heap() noexcept;

// Ends the program: a wrong answer makes its time worthless.
void require(bool condition, const char* what);

// One line of the table. `target` is a sentence; `held` whether it was reached.
void row(const std::string& what, const std::string& ours, const std::string& peer, const std::string& target,
         bool held);
[[nodiscard]] std::string time_text(double nanoseconds);
[[nodiscard]] std::string ratio_text(double ratio);

// A camera document of about this many bytes, with the mix of nodes that large cameras have.
[[nodiscard]] std::string synthetic_document(std::size_t bytes);
// Documents named by ORV_TEST_DOCUMENTS, if any: file name and text.
struct named_text {
    std::string name;
    std::string text;
};
[[nodiscard]] std::vector<named_text> maker_documents();

void load();
void access();
void formula();

} // namespace bench
