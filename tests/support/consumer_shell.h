// Lines of a shell that run the consumer, and what may be expected of its answers.
#pragma once

#include "built.h"
#include "test_system.h"

#include <cli/failure/failure.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace consumer {

inline const std::string program = test_support::built::program("orv-gentl");

using test_support::read_file;

struct answer {
    int exit_code = -1;
    std::string output, errors;
    [[nodiscard]] nlohmann::json json() const { return nlohmann::json::parse(output, nullptr, false); }
};

// A line with "orv-gentl" for the program. JSON that it answers is compared with the schema at the end of the process.
class shell_line {
public:
    shell_line(const test_support::test_system& own, const std::string& line);
    answer wait();
    [[nodiscard]] std::string errors() const { return read_file(stem + ".err"); }
    // False when the error output does not come to hold the text.
    bool wait_for_errors(const std::string& part) const {
        return test_support::eventually([&] { return test_support::holds(errors(), part); });
    }
    test_support::process& process() { return child; }

private:
    std::string text, stem;
    test_support::process child;
};
answer run(const test_support::test_system& own, const std::string& line);

void expect_error(const nlohmann::json& object, cli::cause why, const std::string& text, const std::string& what);

struct row {
    std::string line; // behind "orv-gentl"
    cli::cause why;
    std::string text;
};
// Each as text, whose reason is on the error output alone, and as one JSON object.
void expect_rows(const test_support::test_system& own, const std::vector<row>& rows);

// Whether all lines, "COMMAND<tab>ANSWER", are what docs/orv-gentl.schema.json says; what is not, in `reasons`.
[[nodiscard]] bool follow_the_schema(const std::string& lines, std::string& reasons);

} // namespace consumer
