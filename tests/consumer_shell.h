// Lines of a shell that run the consumer, and what may be expected of its answers.
#pragma once

#include "bench.h"

#include <cli/failure.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace consumer {

inline const std::string program = ORV_BIN_DIR "/orv-gentl";

[[nodiscard]] std::string read_file(const std::filesystem::path& path);

struct answer {
    int exit_code = -1;
    std::string output, errors;
};

// A line with "orv-gentl" for the program. JSON that it answers is compared with the schema at the end of the process.
class shell_line {
public:
    shell_line(const bench::test_bench& own, const std::string& line);
    answer wait();
    [[nodiscard]] std::string errors() const { return read_file(stem + ".err"); }
    bench::process& process() { return child; }

private:
    std::string text, stem;
    bench::process child;
};
answer run(const bench::test_bench& own, const std::string& line);

void expect_error(const nlohmann::json& object, cli::cause why, const std::string& text, const std::string& what);

struct row {
    std::string line; // behind "orv-gentl"
    cli::cause why;
    std::string text;
};
// Each as text, whose reason is on the error output alone, and as one JSON object.
void expect_rows(const bench::test_bench& own, const std::vector<row>& rows);

// Whether all lines, "COMMAND<tab>ANSWER", are what docs/orv-gentl.schema.json says; what is not, in `reasons`.
[[nodiscard]] bool follow_the_schema(const std::string& lines, std::string& reasons);

} // namespace consumer
