// load     a document of about 1 MB: against pugixml's bare parse of the same text, and against aravis; memory per node
// access   cached register, swiss knife of four variables, converter round trip, selector with 100 selected features
// formula  four typical formulas: against muParser and against the same expression in C++
//
// Prints one table. Figures of a peer are taken in turn with ours in the same run. With ORV_TEST_DOCUMENTS naming a
// folder of camera documents, those are loaded as well.
#include "bench.h"

#include <fmt/format.h>

#include <cstdlib>

#include <malloc.h>

namespace bench {

void require(bool condition, const char* what) {
    if (condition) return;
    fmt::print(stderr, "bench_genicam: wrong answer: {}\n", what);
    std::exit(1);
}

void row(const std::string& what, const std::string& ours, const std::string& peer, const std::string& target,
         bool held) {
    fmt::print("| {:<52} | {:>10} | {:<34} | {:<24} | {:<4} |\n", what, ours, peer, target,
               target.empty() ? ""
               : held         ? "yes"
                              : "NO");
    std::fflush(stdout);
}

std::string time_text(double nanoseconds) {
    if (nanoseconds < 1e3) return fmt::format("{:.1f} ns", nanoseconds);
    if (nanoseconds < 1e6) return fmt::format("{:.1f} us", nanoseconds / 1e3);
    return fmt::format("{:.2f} ms", nanoseconds / 1e6);
}

std::string ratio_text(double ratio) { return fmt::format("{:.2f}", ratio); }

} // namespace bench

int main() {
    // Memory stays in the process, so that no load pays for pages that an earlier one gave back.
    mallopt(M_MMAP_THRESHOLD, 1 << 30);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    fmt::print("| {:<52} | {:>10} | {:<34} | {:<24} | {:<4} |\n", "what", "ours", "peer", "target", "held");
    fmt::print("|{:-<54}|{:->11}:|{:-<36}|{:-<26}|{:-<6}|\n", "", "", "", "", "");
    bench::load();
    bench::access();
    bench::formula();
}
