// A raw picture from a file, in another format.
#pragma once

#include <cstdint>
#include <string>

namespace cli {

struct convert_options {
    std::string file, output; // output empty: the file with the format's name
    std::string from, to;
    uint32_t width = 0, height = 0;
    bool json = false;
};

int convert_file(const convert_options& options);

} // namespace cli
