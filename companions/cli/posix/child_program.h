// Another program's answer.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace cli {

struct program_answer {
    std::string output;  // standard and error output, as they came
    std::string problem; // why there is none, or not all; empty: it ended by itself
};

// Looks where start_program does. The program has no input, and is ended when it takes longer.
[[nodiscard]] program_answer run_program(const std::vector<std::string>& command, std::chrono::seconds longest);

} // namespace cli
