// What a program relies on before its first line: three open standard descriptors, writes that fail instead of killing.
#pragma once

namespace cli {

// A standard descriptor that is closed would be given to the next file or socket that is opened, which then receives
// what is printed: such a one is taken by an end that nothing can be written to. A reader that goes makes writes fail,
// no more. Once, at the start of main.
void secure_standard_streams();

[[nodiscard]] bool errors_are_seen_on_a_terminal();
[[nodiscard]] bool output_is_a_terminal();

} // namespace cli
