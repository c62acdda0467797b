// What the program needs of the process it is.
#pragma once

#include <string_view>

namespace camera_sim::posix {

// Takes over SIGINT and SIGTERM; construct it before any thread starts, so that all of them inherit the blocked mask.
class termination {
public:
    explicit termination(bool with_parent); // with_parent: the parent's end counts as SIGTERM
    void wait() const;
};

void write_text(int descriptor, std::string_view text);

} // namespace camera_sim::posix
