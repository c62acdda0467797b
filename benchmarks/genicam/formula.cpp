// Running a compiled formula: muParser as the peer, the same expression in C++ as the floor. Its variables change with
// every run.
#include "bench.h"

#include <math_parser/execute.h>

#include <fmt/format.h>
#include <muParser.h>

#include <cmath>

namespace bench {

namespace {

struct formula_case {
    const char* name;
    const char* ours;
    const char* theirs; // muParser writes ==, && and so on, and has no bit operators on its doubles
    double (*native)(double a, double b, double c);
};

const formula_case cases[] = {
    {"scale: A * B / 1000", "A * B / 1000", "A * B / 1000", [](double a, double b, double) { return a * b / 1000; }},
    {"line: (A - B) * C + 0.5", "(A - B) * C + 0.5", "(A - B) * C + 0.5",
     [](double a, double b, double c) { return (a - b) * c + 0.5; }},
    {"choice: (A = 1) ? B : ((A = 2) ? C : 0)", "(A = 1) ? B : ((A = 2) ? C : 0)", "(A == 1) ? B : ((A == 2) ? C : 0)",
     [](double a, double b, double c) { return a == 1   ? b
                                               : a == 2 ? c
                                                        : 0; }},
    {"decibel: 20 * LG(A / B) + C", "20 * LG(A / B) + C", "20 * log10(A / B) + C",
     [](double a, double b, double c) { return 20 * std::log10(a / b) + c; }},
};

constexpr std::size_t inputs = 64; // a power of two

void run_case(const formula_case& test) {
    double a[inputs], b[inputs], c[inputs];
    for (std::size_t i = 0; i < inputs; ++i) {
        a[i] = static_cast<double>(i % 5 + 1);
        b[i] = static_cast<double>(i * 7 % 11) + 1.25;
        c[i] = static_cast<double>(i * 3 % 13) - 2.5;
    }

    const auto lookup = [](std::string_view name) -> std::optional<math_parser::lookup_func_result_t> {
        return static_cast<uint64_t>(name[0] - 'A' + 1);
    };
    const auto program = math_parser::compile_formula(test.ours, lookup).value();
    double variables[3] = {};
    auto fetch = [&](uint64_t id) -> GenICam::result<math_parser::tValue> { return variables[id - 1]; };
    const auto load_variables = [&](std::size_t i) { variables[0] = a[i], variables[1] = b[i], variables[2] = c[i]; };

    mu::Parser peer;
    double va = 1, vb = 1, vc = 1;
    peer.DefineVar("A", &va);
    peer.DefineVar("B", &vb);
    peer.DefineVar("C", &vc);
    peer.SetExpr(test.theirs);

    for (std::size_t at = 0; at < inputs; ++at) {
        load_variables(at);
        va = a[at], vb = b[at], vc = c[at];
        const double expected = test.native(va, vb, vc);
        require(math_parser::execute(program, fetch)->to_double() == expected, test.name);
        require(peer.Eval() == expected, test.name);
    }

    volatile double sink = 0;
    const auto ours = [&](uint64_t n) {
        double sum = 0;
        for (uint64_t i = 0; i < n; ++i) {
            load_variables(i & (inputs - 1));
            sum += math_parser::execute(program, fetch)->to_double();
        }
        sink = sum;
    };
    const auto theirs = [&](uint64_t n) {
        double sum = 0;
        for (uint64_t i = 0; i < n; ++i) {
            const std::size_t j = i & (inputs - 1);
            va = a[j], vb = b[j], vc = c[j];
            sum += peer.Eval();
        }
        sink = sum;
    };
    const auto native = [&](uint64_t n) {
        double sum = 0;
        auto* volatile hidden = test.native; // called, not inlined
        const auto function = hidden;
        for (uint64_t i = 0; i < n; ++i) {
            const std::size_t j = i & (inputs - 1);
            sum += function(a[j], b[j], c[j]);
        }
        sink = sum;
    };
    const auto times = measure_both(ours, theirs);
    const double floor = measure(native);
    row(std::string{"formula "} + test.name, time_text(times.ours),
        fmt::format("muParser {}, C++ {}", time_text(times.theirs), time_text(floor)), "faster than muParser",
        times.ours < times.theirs);
}

} // namespace

void formula() {
    for (const formula_case& test : cases) run_case(test);
}

} // namespace bench
