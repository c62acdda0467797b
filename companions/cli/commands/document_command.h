// A document without a device.
#pragma once

#include <string>

namespace cli {

struct document_options {
    std::string file;
    std::string memory; // file with the bytes behind the port "Device"; none: zeros at every address
    bool json = false;
    bool time = false;
};

int show_document(const document_options& options);

} // namespace cli
